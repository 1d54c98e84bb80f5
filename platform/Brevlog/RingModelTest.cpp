// Random records against a plain deque of texts.
#include <Brevlog/Ring.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace Brevlog {
namespace {

struct Expected {
  std::string text;
  size_t bytes;
};

class RingModel {
 public:
  RingModel(size_t capacity, unsigned seed) : ring_(capacity), random_(seed) {}

  void recordAny() {
    const int n = static_cast<int>(random_() % 1000);
    const std::string number = std::to_string(n);
    switch (random_() % 7) {
      case 0: record("none "); break;
      case 1: record("char c" + number, 'c', n); break;
      case 2: record("five <" + number + ", 0.5>", "<", n, ", ", 0.5, ">"); break;
      case 3: record("byte 7", Mox::U8{7}); break;
      case 4: record("text " + number, number); break;
      case 5: record("bytes 7true8", Mox::U8{7}, true, Mox::U8{8}); break;
      default: record("long " + number + "22.5345", n, 2, 2.5, 3.0, "4", 5.0); break;
    }
  }

  // Reads some of the records; none is skipped but those that are counted as lost.
  void readSome() {
    unread_ += reader_.takeLost();
    ASSERT_EQ(unread_, reader_.position());
    for (unsigned wanted = random_() % 8; wanted > 0; --wanted) {
      std::string text;
      const bool read = reader_.next([&](const Ring::Line& line) { text = line.text(); });
      ASSERT_EQ(read, unread_ < model_.size());
      if (!read) return;
      ASSERT_EQ(text, model_[unread_].text);
      ++unread_;
    }
  }

  // The ring holds the newest records, as many as fit.
  void check() const {
    std::deque<std::string> texts;
    ring_.forEach([&](const Ring::Line& line) { texts.push_back(line.text()); });
    ASSERT_EQ(ring_.recorded(), model_.size());
    ASSERT_EQ(ring_.recorded() - ring_.overwritten(), texts.size());
    const size_t gone = model_.size() - texts.size();
    size_t bytes = 0;
    for (size_t i = 0; i < texts.size(); ++i) {
      ASSERT_EQ(texts[i], model_[gone + i].text) << "line " << i;
      bytes += model_[gone + i].bytes;
    }
    ASSERT_LE(bytes, ring_.capacity());
    // The last one gone was in the way of the newest: at most one record's worth is left unused at
    // the end of the memory.
    if (gone > 0) {
      ASSERT_GT(bytes + model_[gone - 1].bytes + biggest_, ring_.capacity());
    }
  }

 private:
  template <class... Part>
  void record(const std::string& expected, const Part&... part) {
    static constexpr const char* facilities[] = {"none", "char",  "five", "byte",
                                                 "text", "bytes", "long"};
    const auto facility =
        std::find_if(std::begin(facilities), std::end(facilities),
                     [&](auto name) { return expected.substr(0, expected.find(' ')) == name; });
    const size_t bytes = Ring::recordBytes(part...);
    biggest_ = std::max(biggest_, bytes);
    ring_.record(1, *facility, 0.0, part...);
    model_.push_back({expected, bytes});
  }

  Ring ring_;
  Ring::Reader reader_{ring_};
  size_t unread_ = 0;  // the first record that it has not read
  std::mt19937 random_;
  std::deque<Expected> model_;
  size_t biggest_ = 0;
};

TEST(RingModelTest, holdsTheNewestRecordsWhateverTheirSizes) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RingModel model(size_t{128} << (seed % 5), seed);
    for (int i = 0; i < 300; ++i) {
      model.recordAny();
      model.check();
      if (i % 3 == 0) model.readSome();
      if (HasFatalFailure()) return;
    }
  }
}

}  // namespace
}  // namespace Brevlog

#include <Text/TraceText.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Mox/Trace.h>
#include <MoxBase/Fatal.h>

#include <AgentTestSupport/TempFolder.h>

namespace Agent {
namespace {

using testing::EndsWith;

TEST(TraceText, hasOneColumnEach) {
  EXPECT_EQ(traceText(1021.0002504, 3, "IgmpPacket", "eth0 a packet"),
            "1021.000250  3 IgmpPacket       eth0 a packet");
  EXPECT_EQ(traceText(0.0, -1, "AHandleOfALongName", ""), "0.000000 -1 AHandleOfALongName ");
}

class FatalTraceDeathTest : public testing::Test {
 protected:
  // Ends in a fatal assertion, in the working directory.
  void die(const std::string& traceFolder) const {
    std::filesystem::current_path(working_);
    fatalTraceFolderIs(traceFolder);
    Mox::trace<3>(Mox::TraceHandle::named("Dying"), "the last words");
    Mox::fatalUnless(false, "Some.tin", "false");
  }
  void makeFolders() const {
    std::filesystem::create_directories(working_);
    std::filesystem::create_directories(run_);
  }
  static std::vector<std::filesystem::path> filesIn(const std::string& folder) {
    return {std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()};
  }
  static std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  const TempFolder folder_;
  const std::string working_ = folder_.path() + "/working";
  const std::string run_ = folder_.path() + "/run";
};

TEST_F(FatalTraceDeathTest, ringIsLeftInAFileOfTheFolder) {
  makeFolders();
  EXPECT_DEATH(die(run_), "Assertion 'false' failed.*\n*igmpq: the trace up to here is in " + run_ +
                              "/igmpq-trace-[0-9]+.txt\n");
  const auto files = filesIn(run_);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_THAT(contents(files.front()), EndsWith(" 3 Dying            the last words\n"));
  struct stat file {};
  ASSERT_EQ(stat(files.front().c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0007, 0u);
}

TEST_F(FatalTraceDeathTest, ringIsLeftInTheWorkingDirectoryWhereTheFolderDoesNotTakeIt) {
  makeFolders();
  EXPECT_DEATH(die(folder_.path() + "/gone"),
               "cannot write the trace to " + folder_.path() +
                   "/gone/igmpq-trace-[0-9]+.txt: No such file or directory\n" +
                   "igmpq: the trace up to here is in " + working_ + "/igmpq-trace-[0-9]+.txt\n");
  const auto files = filesIn(working_);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_THAT(contents(files.front()), EndsWith("the last words\n"));
}

TEST_F(FatalTraceDeathTest, whatALinkOfThatNameLeadsToIsNotWrittenInto) {
  makeFolders();
  const std::string victim = folder_.path() + "/victim";
  std::ofstream(victim) << "precious";
  const auto trapped = [&] {
    const std::string name = "/igmpq-trace-" + std::to_string(getpid()) + ".txt";
    std::filesystem::create_symlink(victim, run_ + name);
    die(run_);
  };
  EXPECT_DEATH(trapped(), "igmpq: the trace up to here is in " + run_);
  EXPECT_EQ(contents(victim), "precious");
  const auto files = filesIn(run_);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(std::filesystem::symlink_status(files.front()).type() ==
              std::filesystem::file_type::regular);
}

TEST_F(FatalTraceDeathTest, onlyTheNewestFilesOfEarlierProcessesStay) {
  makeFolders();
  const auto made = [&](size_t hoursAgo, const std::string& name) {
    const std::string path = run_ + "/" + name;
    std::ofstream(path) << "old";
    std::filesystem::last_write_time(
        path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(hoursAgo));
    return path;
  };
  const std::string notes = made(99, "igmpq-notes.txt");
  std::vector<std::string> traces;
  for (size_t age = 1; age <= tracesKept + 3; ++age) {
    const size_t noOrder = 10'000'000 + age * 37 % 11;
    traces.push_back(made(age, "igmpq-trace-" + std::to_string(noOrder) + ".txt"));
  }
  EXPECT_DEATH(die(run_), "the trace up to here is in " + run_);
  EXPECT_TRUE(std::filesystem::exists(notes));
  for (size_t i = 0; i < traces.size(); ++i) {
    EXPECT_EQ(std::filesystem::exists(traces[i]), i < tracesKept) << traces[i];
  }
  EXPECT_EQ(filesIn(run_).size(), 1 + tracesKept + 1);
}

TEST_F(FatalTraceDeathTest, withoutAFolderItIsTheWorkingDirectory) {
  makeFolders();
  EXPECT_DEATH(die(""), "igmpq: the trace up to here is in " + working_ + "/igmpq-trace-");
  EXPECT_EQ(filesIn(working_).size(), 1u);
}

}  // namespace
}  // namespace Agent

// Files in memory: an input that has a path, for readers that need one, and an output that becomes
// a string.
//
//   const MemoryFile file({data, size});
//   MemoryOutput out;
//   run(file.path(), out.stream());
//   compare(out.text());
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include <MoxBase/Types.h>

namespace Fuzz {

class MemoryFile {
 public:
  explicit MemoryFile(std::span<const Mox::U8> bytes) : descriptor_(memfd_create("fuzz", 0)) {
    if (descriptor_ < 0) fail("memfd_create");
    while (!bytes.empty()) {
      const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
      if (written <= 0) fail("write");
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Each open() of it reads from the front.
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  // Ends without a finding: the target cannot work on this system.
  [[noreturn]] static void fail(const char* what) {
    std::perror(what);
    std::_Exit(2);
  }

  int descriptor_;
};

class MemoryOutput {
 public:
  MemoryOutput() : stream_(open_memstream(&text_, &size_)) {
    if (stream_ == nullptr) std::_Exit(2);
  }
  ~MemoryOutput() {
    std::fclose(stream_);
    std::free(text_);
  }
  MemoryOutput(const MemoryOutput&) = delete;
  MemoryOutput& operator=(const MemoryOutput&) = delete;

  std::FILE* stream() const { return stream_; }
  std::string text() const {
    std::fflush(stream_);
    return {text_, size_};
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* stream_;
};

}  // namespace Fuzz

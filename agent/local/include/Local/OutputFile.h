// Standard output, or another file, written without ever waiting for it.
//
// A stopped terminal, a full pipe or a full disk takes nothing for a while, or for ever. The flag
// O_NONBLOCK of the descriptor itself is left alone: other processes, a shell for one, share it.
//
//   OutputFile out(STDOUT_FILENO);
//   text.erase(0, out.write(text));
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

#include <Local/Descriptor.h>
#include <sys/types.h>

namespace Agent {

class OutputFile {
 public:
  // The descriptor stays the caller's, and open.
  explicit OutputFile(int fd);

  // How many bytes of the text were taken: all, some, or, when it takes none or has failed, 0.
  std::size_t write(std::string_view text);
  // Waits until it takes bytes, at most that long. False when it does not.
  bool waitWritable(std::chrono::milliseconds patience) const;

 private:
  enum class Kind { plain, nonBlocking, socket, pipe, terminal };

  ssize_t writeSome(std::string_view text) const;

  Kind kind_ = Kind::plain;
  Descriptor own_;
  int fd_;
};

}  // namespace Agent

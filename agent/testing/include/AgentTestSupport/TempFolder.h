// A folder for the files and sockets of one test. It is deleted with this object.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Agent {

class TempFolder {
 public:
  TempFolder() {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder for the test");
  }
  ~TempFolder() { std::filesystem::remove_all(path_); }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/tmp/AgentTest." + std::string(6, 'X');  // which mkdtemp replaces
};

}  // namespace Agent

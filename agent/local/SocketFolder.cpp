#include "SocketFolder.h"

#include <cerrno>
#include <climits>
#include <deque>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "UnixAddress.h"

namespace Agent {

namespace {

constexpr int mostLinks = 40;  // as the kernel follows at most
constexpr mode_t othersWrite = S_IWGRP | S_IWOTH;

// From the root of the file system to the wanted folder.
class Walk {
 public:
  explicit Walk(const std::filesystem::path& folder) : wanted_(folder) {
    enterRoot();
    add(std::filesystem::absolute(folder));
  }

  SocketFolder result() {
    while (!names_.empty()) {
      const std::string name = std::move(names_.front());
      names_.pop_front();
      check();
      enter(name);
    }
    return std::move(at_);
  }

 private:
  void enterRoot() {
    at_ = {.opened = Descriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC))};
    if (!at_.opened.isOpen()) failWithErrno();
    path_ = "/";
  }

  // The first name that is to be entered is the first of the path.
  void add(const std::filesystem::path& path) {
    std::deque<std::string> names;
    for (const auto& name : path.relative_path()) {
      if (!name.empty() && name != ".") names.push_back(name);
    }
    names_.insert(names_.begin(), names.begin(), names.end());
  }

  // Any user who can write to a folder can replace its contents.
  void check() const {
    struct stat status {};
    if (fstat(at_.opened.fd(), &status) != 0) failWithErrno();
    const std::string shown = path_.string();
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
      throw std::runtime_error(fmt::format(
          "{}, above the folder {}, belongs to user {}, who could replace it; choose another path "
          "with --socket",
          shown, wanted_.string(), status.st_uid));
    }
    if ((status.st_mode & othersWrite) != 0 && (status.st_mode & S_ISVTX) == 0) {
      throw std::runtime_error(
          fmt::format("other users can write to {}, above the folder {}, and could replace it; "
                      "`chmod go-w {}`, "
                      "or choose another path with --socket",
                      shown, wanted_.string(), shown));
    }
  }

  void enter(const std::string& name) {
    const auto open = [&] {
      return Descriptor(::openat(at_.opened.fd(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    };
    Descriptor next = open();
    bool isNew = false;
    if (!next.isOpen() && errno == ENOENT) {
      const FileMask mask(othersWrite);
      isNew = ::mkdirat(at_.opened.fd(), name.c_str(), 0777) == 0;
      if (!isNew && errno != EEXIST) failWithErrno();
      next = open();
    }
    struct stat status {};
    if (!next.isOpen() || fstat(next.fd(), &status) != 0) failWithErrno();
    if (S_ISLNK(status.st_mode)) return follow(next, status, name);
    if (!S_ISDIR(status.st_mode)) throw std::runtime_error(errorText(ENOTDIR));
    at_ = {.opened = std::move(next), .isNew = isNew};
    path_ /= name;
  }

  void follow(const Descriptor& link, const struct stat& status, const std::string& name) {
    const std::string shown = (path_ / name).string();
    if (names_.empty() || ++links_ > mostLinks) {
      throw std::runtime_error(
          fmt::format("{} is a symbolic link; name the folder itself with --socket", shown));
    }
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
      throw std::runtime_error(
          fmt::format("{} is a symbolic link of user {}, who could change it; choose another path "
                      "with --socket",
                      shown, status.st_uid));
    }
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(link.fd(), "", target.data(), target.size());
    if (length < 0) failWithErrno();
    target.resize(static_cast<size_t>(length));
    const std::filesystem::path to(target);
    if (to.is_absolute()) enterRoot();
    add(to);
  }

  const std::filesystem::path wanted_;
  std::deque<std::string> names_;  // still to be entered
  std::filesystem::path path_;     // of the folder that was reached
  SocketFolder at_;
  int links_ = 0;
};

}  // namespace

std::string socketFolderPath(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path();
  return folder.empty() ? "." : folder;
}

SocketFolder openedSocketFolder(const std::string& path) {
  return Walk(socketFolderPath(path)).result();
}

}  // namespace Agent

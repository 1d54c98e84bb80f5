// For tests of rights: while it exists, this process has another user, another group and other
// supplementary groups. The kernel reports the identity that a process had when it connected a
// socket. Only root can take on another identity.
#pragma once

#include <vector>

#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Agent {

inline constexpr unsigned nobodyId = 65534;

class OtherIdentity {
 public:
  explicit OtherIdentity(uid_t user = nobodyId, gid_t mainGroup = nobodyId,
                         const std::vector<gid_t>& supplementary = {}) {
    const int count = ::getgroups(0, nullptr);
    before_.resize(static_cast<size_t>(count));
    isTaken_ = ::getgroups(count, before_.data()) == count &&
               ::setgroups(supplementary.size(), supplementary.data()) == 0 &&
               ::setegid(mainGroup) == 0 && ::seteuid(user) == 0;
  }
  ~OtherIdentity() {
    const bool isBack =
        ::seteuid(0) == 0 && ::setegid(0) == 0 && ::setgroups(before_.size(), before_.data()) == 0;
    EXPECT_TRUE(isBack);
  }
  OtherIdentity(const OtherIdentity&) = delete;
  OtherIdentity& operator=(const OtherIdentity&) = delete;
  bool isTaken() const { return isTaken_; }

 private:
  std::vector<gid_t> before_;
  bool isTaken_ = false;
};

}  // namespace Agent

#include "RandomNumber.h"

#include <cerrno>
#include <system_error>

#include <sys/random.h>

namespace Igmpq {

Mox::U64 randomNumber() {
  Mox::U64 number = 0;
  if (getrandom(&number, sizeof(number), 0) != sizeof(number)) {
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  }
  return number;
}

}  // namespace Igmpq

// The machine and its present boot, as processes compare them: times of the activity clock mean the
// same in all processes of one boot, and nothing in another.
//
//   if (state->bootId() != bootId()) refuse();
#pragma once

#include <string>

namespace Agent {

// "2c5f3d4e-8a6b-4f0e-9d1c-7b8a9e0f1a2b"; empty where the kernel does not say.
std::string bootId();
// 32 hexadecimal digits, which the installation of the machine has chosen; empty where it has none.
std::string machineId();

}  // namespace Agent

// What a store keeps, as text for people or as JSON for programs.
//
//   printStore(stdout, *client.storeState(), client.interfaces(), Mox::now(), Format::text);
#pragma once

#include <cstdio>
#include <string>

#include <Client/AttrLogCopy.h>
#include <MoxBase/Types.h>
#include <Report/StoreState.h>
#include <Text/Format.h>

namespace Agent {

std::string storeText(const StoreState& state, const AttrLogCopy::Interfaces& interfaces,
                      Mox::Seconds now);
// One line.
std::string storeJson(const StoreState& state, const AttrLogCopy::Interfaces& interfaces,
                      Mox::Seconds now);

void printStore(std::FILE* out, const StoreState& state, const AttrLogCopy::Interfaces& interfaces,
                Mox::Seconds now, Format format);

}  // namespace Agent

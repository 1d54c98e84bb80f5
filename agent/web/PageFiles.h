// The files of the page, which are part of the program: nothing has to be installed or found.
#pragma once

#include <span>
#include <string_view>

namespace Agent {

struct PageFile {
  std::string_view name;
  std::string_view content;
};

// Made from the folder `page` when the program is built.
std::span<const PageFile> pageFiles();

}  // namespace Agent

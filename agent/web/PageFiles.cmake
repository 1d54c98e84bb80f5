# Writes OUTPUT, a source that contains FILES.
#
#   cmake -D OUTPUT=PageFiles.cpp -D "FILES=page/index.html;page/app.js" -P PageFiles.cmake
set(source "#include \"PageFiles.h\"\n\n#include <array>\n\nnamespace Agent {\n\nnamespace {\n\n")
set(table "")
set(number 0)
foreach(path IN LISTS FILES)
  get_filename_component(name "${path}" NAME)
  file(READ "${path}" bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND source "constexpr char content${number}[] = {${bytes}};\n")
  string(APPEND table "    PageFile{\"${name}\", {content${number}, sizeof(content${number})}},\n")
  math(EXPR number "${number} + 1")
endforeach()
string(APPEND source "constexpr std::array files{\n${table}};\n\n}  // namespace\n\n"
  "std::span<const PageFile> pageFiles() { return files; }\n\n}  // namespace Agent\n")
file(WRITE "${OUTPUT}" "${source}")

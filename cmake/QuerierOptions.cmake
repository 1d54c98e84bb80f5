# The compile options of every target of this project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

set(QUERIER_SANITIZE "" CACHE STRING "Sanitizers for every target, for instance address,undefined")
# vptr needs a free descriptor to look at an object, which some tests use up.
set(QUERIER_SANITIZE_EXCEPT "vptr" CACHE STRING "Parts of these sanitizers that are left out")

# Not for packages: a compiler of another version, or sources that are compiled together, may bring
# warnings that say nothing about the code.
option(QUERIER_WERROR "Warnings of the compiler are errors" ON)

add_library(querier_options INTERFACE)
target_compile_options(querier_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion $<$<BOOL:${QUERIER_WERROR}>:-Werror> -Wshadow
  # At -O3 g++ 12 sees overlaps and overflows in std::string that do not exist.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)

# The shared libraries call their own functions directly, without a table, even if a host defines
# functions of the same names.
add_compile_options(-fno-semantic-interposition)
add_link_options(-Wl,-Bsymbolic-functions)

if(QUERIER_SANITIZE)
  add_compile_options(-fsanitize=${QUERIER_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all -fno-sanitize=${QUERIER_SANITIZE_EXCEPT})
  add_link_options(-fsanitize=${QUERIER_SANITIZE})
endif()

include(GoogleTest)
if(BUILD_TESTING OR NOT DEFINED BUILD_TESTING)
  find_package(GTest REQUIRED)
endif()

# A module in one call: its archive, and its tests beside its sources. Others find the headers in
# its include/ only by linking it, so that a dependency that points up does not compile. DEPS are
# what its public headers include, PRIVATE_DEPS what its sources alone use, TEST_DEPS what its tests
# use besides. Modules of one FLOOR do not include each other, which `scripts/check arrows` proves.
#
#   querier_module(Obel SOURCES TimerWheel.cpp TESTS TimerWheelTest.cpp DEPS Querier::MoxBase)
function(querier_module name)
  cmake_parse_arguments(ARG "" "FLOOR" "SOURCES;TESTS;DEPS;PRIVATE_DEPS;TEST_DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  add_library(Querier::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}/include")
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS} querier_options)
  # With a unique symbol the shared library could not be unloaded.
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  set_property(TARGET ${name} PROPERTY QUERIER_FLOOR "${ARG_FLOOR}")
  set_property(GLOBAL APPEND PROPERTY QUERIER_INCLUDE_DIRS "${CMAKE_CURRENT_SOURCE_DIR}/include")
  if(BUILD_TESTING AND ARG_TESTS)
    querier_tests(${name}Tests
      SOURCES ${ARG_TESTS} DEPS ${name} ${ARG_PRIVATE_DEPS} ${ARG_TEST_DEPS})
  endif()
endfunction()

# A test program whose cases are tests of ctest. Its sources are compiled eight at a time, as
# reading the headers again for each source took most of a build.
function(querier_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES UNITY_BUILD ON)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} querier_options GTest::gmock GTest::gtest_main)
  # A parameterised test goes by the name of its case, not by the bytes of the parameter.
  gtest_discover_tests(${name}
    NO_PRETTY_TYPES NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()

# Joins modules into one shared library: only their exports are visible. Types register at load
# time, so every object of the modules is linked, used or not.
#
# FILE is the name of its file without "lib", which packages take theirs from: one that begins with
# "gmp" would read as a part of the GNU library of that name.
#
#   querier_shared_library(GmpPlatform FILE IgmpQuerierPlatform MODULES MoxBase Mox DEPS ...)
function(querier_shared_library name)
  cmake_parse_arguments(ARG "" "FILE" "MODULES;DEPS" ${ARGN})
  set(anchor "${CMAKE_CURRENT_BINARY_DIR}/${name}Version.cpp")
  file(CONFIGURE OUTPUT "${anchor}" CONTENT
    "// NOLINTBEGIN(readability-identifier-naming): called as the library is
extern \"C\" __attribute__((visibility(\"default\"))) const char ${name}Version[];
const char ${name}Version[] = \"${PROJECT_VERSION}\";
// NOLINTEND(readability-identifier-naming)\n")
  add_library(${name} SHARED "${anchor}")
  add_library(Querier::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME ${ARG_FILE}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  foreach(module IN LISTS ARG_MODULES)
    # Objects, not archives: an archive that several modules need would be linked twice.
    target_sources(${name} PRIVATE "$<TARGET_OBJECTS:${module}>")
    get_target_property(dirs ${module} INTERFACE_INCLUDE_DIRECTORIES)
    target_include_directories(${name} INTERFACE "$<BUILD_INTERFACE:${dirs}>")
  endforeach()
  target_include_directories(${name} INTERFACE "$<INSTALL_INTERFACE:include/gmp-igmp-querier>")
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

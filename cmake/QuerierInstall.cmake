# Installs two shared libraries, their public headers, a CMake package, pkg-config files and the
# command. The installed tree can be moved: no file in it contains the prefix. Manual pages,
# completion and the unit are installed where they are kept, by `doc/man` and `packaging`.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/GmpIgmpQuerier")
set(header_dir include/gmp-igmp-querier)

set_target_properties(GmpPlatform GmpIgmpQuerier PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS GmpPlatform GmpIgmpQuerier EXPORT GmpIgmpQuerierTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(EXPORT GmpIgmpQuerierTargets NAMESPACE Querier:: DESTINATION "${package_dir}")

# Only those of the libraries' modules: the agent has headers, too, but no program links it.
get_property(module_includes GLOBAL PROPERTY QUERIER_INCLUDE_DIRS)
foreach(dir IN LISTS module_includes)
  file(RELATIVE_PATH inside "${PROJECT_SOURCE_DIR}" "${dir}")
  if(inside MATCHES "^(platform/[^/]+|GmpIgmpQuerier|GmpAttrLogSm|GmpIgmpQuerierSm)/include$")
    install(DIRECTORY "${dir}/" DESTINATION "${header_dir}" FILES_MATCHING PATTERN "*.h")
  endif()
endforeach()

file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/GmpIgmpQuerierConfig.cmake" @ONLY CONTENT
  [[include("${CMAKE_CURRENT_LIST_DIR}/GmpIgmpQuerierTargets.cmake")
]])
write_basic_package_version_file("${PROJECT_BINARY_DIR}/GmpIgmpQuerierConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/GmpIgmpQuerierConfig.cmake"
  "${PROJECT_BINARY_DIR}/GmpIgmpQuerierConfigVersion.cmake"
  DESTINATION "${package_dir}")

set(pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH up "/${pc_dir}" "/")
string(REGEX REPLACE "/$" "" up "${up}")
function(querier_pkg_config file name description libs requires)
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/${file}.pc" @ONLY CONTENT
    [[prefix=${pcfiledir}/@up@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=${prefix}/@header_dir@

Name: @name@
Description: @description@ (C++20)
Version: @PROJECT_VERSION@
Requires: @requires@
Cflags: -I${includedir}
Libs: -L${libdir} @libs@
]])
  install(FILES "${PROJECT_BINARY_DIR}/${file}.pc" DESTINATION "${pc_dir}")
endfunction()
querier_pkg_config(gmp-platform GmpPlatform
  "Entities, timer wheel, network values and trace ring" "-lIgmpQuerierPlatform" "")
querier_pkg_config(gmp-igmp-querier GmpIgmpQuerier
  "Router side of IGMP versions 1, 2 and 3" "-lIgmpQuerier" "gmp-platform")

if(TARGET igmpq)
  file(RELATIVE_PATH to_lib "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(igmpq PROPERTIES INSTALL_RPATH "$ORIGIN/${to_lib}")
  install(TARGETS igmpq RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()

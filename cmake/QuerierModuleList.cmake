# Writes modules.txt into the build tree: a line for each module, lower ones first, with its name,
# its floor (if it has one), its include directory and all that it sees, as the targets know it.
# scripts/header_rules.py reads it.
function(querier_modules_below dir result)
  get_directory_property(found DIRECTORY "${dir}" BUILDSYSTEM_TARGETS)
  get_directory_property(subdirs DIRECTORY "${dir}" SUBDIRECTORIES)
  foreach(sub IN LISTS subdirs)
    querier_modules_below("${sub}" more)
    list(APPEND found ${more})
  endforeach()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

function(querier_write_module_list)
  querier_modules_below("${PROJECT_SOURCE_DIR}" targets)
  set(lines "")
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    get_target_property(source ${target} SOURCE_DIR)
    if(type STREQUAL "STATIC_LIBRARY" AND IS_DIRECTORY "${source}/include")
      get_target_property(floor ${target} QUERIER_FLOOR)
      set(sees "$<TARGET_PROPERTY:${target},INTERFACE_INCLUDE_DIRECTORIES>")
      string(APPEND lines "${target}|${floor}|${source}/include|${sees}\n")
    endif()
  endforeach()
  file(GENERATE OUTPUT "${PROJECT_BINARY_DIR}/modules.txt" CONTENT "${lines}")
endfunction()

querier_write_module_list()

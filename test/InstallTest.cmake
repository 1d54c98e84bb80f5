# One step of the installation test, named by `step`; the first one makes the tree that the others
# use. The example is copied out of the source tree, so that it can use nothing of that.
set(prefix "${work_dir}/prefix")
set(expected "query for all groups.*vlan10: 1 groups.*query for 239\\.1\\.1\\.1.*vlan10: 0 groups")

function(run)
  cmake_parse_arguments(ARG "" "OUTPUT" "COMMAND" ${ARGN})
  execute_process(COMMAND ${ARG_COMMAND}
    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    string(JOIN " " line ${ARG_COMMAND})
    message(FATAL_ERROR "${line}: ${result}\n${out}${err}")
  endif()
  if(ARG_OUTPUT)
    set(${ARG_OUTPUT} "${out}" PARENT_SCOPE)
  endif()
endfunction()

function(check_output program)
  run(COMMAND ${ARGN} "${program}" OUTPUT out)
  message(STATUS "${program} prints:\n${out}")
  if(NOT out MATCHES "${expected}")
    message(FATAL_ERROR "expected output that matches: ${expected}")
  endif()
endfunction()

function(copy_example to)
  file(REMOVE_RECURSE "${to}")
  file(GLOB sources "${example_dir}/*.cpp" "${example_dir}/CMakeLists.txt")
  file(COPY ${sources} DESTINATION "${to}")
endfunction()

function(check_installed)
  foreach(file IN LISTS ARGN)
    if(NOT EXISTS "${prefix}/${file}")
      message(FATAL_ERROR "${file} is not installed")
    endif()
  endforeach()
endfunction()

function(installTree)
  file(REMOVE_RECURSE "${work_dir}")
  run(COMMAND ${CMAKE_COMMAND} --install "${build_dir}" --prefix "${prefix}")
  foreach(library IgmpQuerierPlatform IgmpQuerier)
    file(GLOB_RECURSE found "${prefix}/lib*/lib${library}.so.${soversion}")
    if(NOT found)
      message(FATAL_ERROR "lib${library}.so.${soversion} is not installed")
    endif()
  endforeach()
  check_installed(share/man/man3/querierSmFactory.3)
  if(EXISTS "${prefix}/bin/igmpq")
    check_installed(share/man/man1/igmpq.1 share/man/man1/igmpq-run.1
      share/man/man5/igmpq-scenario.5 share/man/man8/igmpq.8
      share/bash-completion/completions/igmpq share/zsh/site-functions/_igmpq
      lib/systemd/system/igmpq.service lib/sysusers.d/igmpq.conf
      share/doc/igmpq/examples/igmpq.rules.yml share/doc/igmpq/examples/igmpq.dashboard.json)
  endif()
endfunction()

function(installConsumer)
  copy_example("${work_dir}/embed")
  run(COMMAND ${CMAKE_COMMAND} -S "${work_dir}/embed" -B "${work_dir}/embed/build" -G Ninja
    "-DCMAKE_CXX_COMPILER=${cxx}" "-DCMAKE_CXX_FLAGS=${cxx_flags}"
    "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
  run(COMMAND ${CMAKE_COMMAND} --build "${work_dir}/embed/build")
  check_output("${work_dir}/embed/build/embed")
endfunction()

function(installPkgConfig)
  file(GLOB_RECURSE pc "${prefix}/gmp-igmp-querier.pc")
  get_filename_component(pc_dir "${pc}" DIRECTORY)
  get_filename_component(lib_dir "${pc_dir}" DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
  run(COMMAND pkg-config --cflags --libs gmp-igmp-querier OUTPUT flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  separate_arguments(cxx_flags UNIX_COMMAND "${cxx_flags}")
  copy_example("${work_dir}/plain")
  run(COMMAND "${cxx}" -std=c++20 ${cxx_flags} "${work_dir}/plain/main.cpp" ${flags}
    -o "${work_dir}/plain/embed")
  check_output("${work_dir}/plain/embed"
    ${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${lib_dir}")
endfunction()

cmake_language(CALL "${step}")

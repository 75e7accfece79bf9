# The installed package as hosts meet it. STEP picks one check:
#   install       installs the build into PREFIX and checks the tree it made
#   consumer      builds and runs the consumer through find_package and pkg-config,
#                 and builds the example hosts, C++ and C, under -Werror
# Every step but install works in a directory of its own below WORK_DIR.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE failed OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(failed)
    message(FATAL_ERROR "command failed: ${ARGN}\n${out}")
  endif()
endfunction()

# The flags of the README's pkg-config recipe, the run-time search path included,
# so that the host finds the library without LD_LIBRARY_PATH.
function(pkg_config_flags variable)
  find_program(PKG_CONFIG pkg-config REQUIRED)
  file(GLOB pcdir ${PREFIX}/lib*/pkgconfig ${PREFIX}/lib/*/pkgconfig)
  set(ENV{PKG_CONFIG_PATH} "${pcdir}")
  execute_process(COMMAND ${PKG_CONFIG} --cflags --libs kxzefarchiver
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  execute_process(COMMAND ${PKG_CONFIG} --variable=libdir kxzefarchiver
    OUTPUT_VARIABLE libdir OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(failed OR NOT IS_DIRECTORY "${libdir}")
    message(FATAL_ERROR "pkg-config does not know kxzefarchiver")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  set(${variable} ${flags} -Wl,-rpath,${libdir} PARENT_SCOPE)
endfunction()

# The library, its headers and package files, and (WITH_ZEF) zef with its man
# page and completion, each where a host or a shell looks for it.
function(step_install)
  file(REMOVE_RECURSE ${PREFIX})
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})
  set(paths include/kxzefarchiver/zefarchiver.h share/doc/kxzefarchiver/LICENSE)
  if(WITH_ZEF)
    list(APPEND paths bin/zef share/man/man1/zef.1 share/bash-completion/completions/zef)
  endif()
  foreach(path IN LISTS paths)
    if(NOT EXISTS ${PREFIX}/${path})
      message(FATAL_ERROR "${path} is not installed")
    endif()
  endforeach()
  if(WITH_ZEF)
    run(${PREFIX}/bin/zef --version)
  endif()
endfunction()

function(step_consumer)
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${WORK_DIR}/cmake
      -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX})
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
  run(${WORK_DIR}/cmake/consumer)
  pkg_config_flags(flags)
  run(${CXX} -std=c++17 ${SOURCE_DIR}/tests/install/consumer/consumer.cpp ${flags} -o ${WORK_DIR}/pkgconfig-consumer)
  run(${WORK_DIR}/pkgconfig-consumer)
  # The example hosts, which the README builds and runs without it, build under -Werror.
  run(${CXX} -std=c++17 -Wall -Wextra -Wpedantic -Werror ${SOURCE_DIR}/examples/host/host.cpp ${flags}
      -o ${WORK_DIR}/zef-host)
  run(${CC} -std=c99 -Wall -Wextra -Wpedantic -Werror ${SOURCE_DIR}/examples/c-host/c_host.c ${flags}
      -o ${WORK_DIR}/c-host)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
string(REPLACE "-" "_" step "${STEP}")
cmake_language(CALL step_${step})
message(STATUS "${STEP}: done")

# Installs the build into a temporary prefix, then builds and runs the
# consumer twice: once with find_package, once with pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE failed OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(failed)
    message(FATAL_ERROR "command failed: ${ARGN}\n${out}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-consumer
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-consumer)
run(${WORK_DIR}/cmake-consumer/consumer)

find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB pcdir ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "${pcdir}")
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs kxzefarchiver
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "pkg-config does not know kxzefarchiver")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
string(REGEX MATCH "-L([^ ;]+)" libflag "${flags}")
run(${CXX} -std=c++17 ${CONSUMER_DIR}/consumer.cpp ${flags} -Wl,-rpath,${CMAKE_MATCH_1}
    -o ${WORK_DIR}/pkgconfig-consumer)
run(${WORK_DIR}/pkgconfig-consumer)
message(STATUS "consumer built and ran against ${prefix}")

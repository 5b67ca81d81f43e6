# run(<what> <command...>): it must succeed, or its output is shown.
function(run what)
  execute_process(
    COMMAND ${ARGN}
    RESULT_VARIABLE status
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${what} failed (${status}):\n${output}")
  endif()
  message(STATUS "${what}: passed")
endfunction()

# configure_project(<what> <source> <build> <options...>): with the compiler and the flags of the build that is tested.
function(configure_project what source build)
  run("${what}"
      "${CMAKE_COMMAND}"
      -S "${source}"
      -B "${build}"
      -G "${GENERATOR}"
      "-DCMAKE_BUILD_TYPE=${CONFIG}"
      "-DCMAKE_CXX_COMPILER=${COMPILER}"
      "-DCMAKE_CXX_COMPILER_LAUNCHER=${COMPILER_LAUNCHER}"
      "-DCMAKE_CXX_FLAGS=${FLAGS}"
      ${ARGN})
endfunction()

# Run by the test install.subproject; the variables in capitals come from its command line.
cmake_minimum_required(VERSION 3.25)
include("${CMAKE_CURRENT_LIST_DIR}/run.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
configure_project("Configuration with shared libraries" "${PROJECT_DIR}" "${WORK_DIR}/shared"
                  "-DKAVO_SOURCE_DIR=${SOURCE_DIR}" "-DEXPECTED_TYPES=STATIC_LIBRARY SHARED_LIBRARY")
configure_project("Configuration with static libraries" "${PROJECT_DIR}" "${WORK_DIR}/static"
                  "-DKAVO_SOURCE_DIR=${SOURCE_DIR}" "-DEXPECTED_TYPES=STATIC_LIBRARY STATIC_LIBRARY" -DBUILD_SHARED_LIBS=OFF)
run("Build with static libraries" "${CMAKE_COMMAND}" --build "${WORK_DIR}/static" --target use_own --parallel)
run("Program with static libraries" "${WORK_DIR}/static/use_own")

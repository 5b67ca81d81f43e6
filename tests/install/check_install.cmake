# Run by the test install.consumer; the variables in capitals come from its command line.
cmake_minimum_required(VERSION 3.25)
include("${CMAKE_CURRENT_LIST_DIR}/run.cmake")

string(REPLACE "," ";" rooms "${ROOMS}")
string(REPLACE "," ";" declared_headers "${HEADERS}")
set(prefix "${WORK_DIR}/prefix")
set(build "${WORK_DIR}/build")

file(REMOVE_RECURSE "${WORK_DIR}")
run("Installation" "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}" --config "${CONFIG}")

# The command finds its libraries in the prefix.
if(COMMAND_NAME)
  run("The command" "${prefix}/${COMMAND_NAME}" info --robot franka)
endif()

# What is installed is what was declared, no more and no less.
file(GLOB_RECURSE installed_headers RELATIVE "${prefix}/include" "${prefix}/include/*")
list(SORT installed_headers)
list(SORT declared_headers)
if(NOT "${installed_headers}" STREQUAL "${declared_headers}")
  message(FATAL_ERROR "Declared headers:\n${declared_headers}\nInstalled headers:\n${installed_headers}")
endif()

# The package must work when this source tree is gone.
file(GLOB_RECURSE package_files "${prefix}/*.cmake")
foreach(file IN LISTS package_files)
  file(READ "${file}" text)
  foreach(directory IN ITEMS "${SOURCE_DIR}" "${BUILD_DIR}")
    string(FIND "${text}" "${directory}" position)
    if(NOT position EQUAL -1)
      message(FATAL_ERROR "${file} refers to ${directory}")
    endif()
  endforeach()
endforeach()

# A header that includes one that is not installed fails here.
set(source "")
foreach(header IN LISTS installed_headers)
  string(APPEND source "#include \"${header}\"\n")
endforeach()
file(WRITE "${WORK_DIR}/all_headers.cpp" "${source}")

# By pkg-config alone; the library of the highest room asks for all others, in the same version.
set(static "")
if(NOT SHARED)
  set(static --static)
endif()
execute_process(
  COMMAND "${CMAKE_COMMAND}" -E env "PKG_CONFIG_PATH=${prefix}/${PKG_CONFIG_DIR}" "${PKG_CONFIG}" ${static} --cflags --libs
          kavo_formats
  OUTPUT_VARIABLE package_flags
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(package_flags UNIX_COMMAND "${FLAGS} ${package_flags}")
run("Program built by pkg-config" "${COMPILER}" -std=c++17 "${CONSUMER_DIR}/use_formats.cpp" -o
    "${WORK_DIR}/use_pkg_config" ${package_flags} "-Wl,-rpath,${prefix}/${LIB_DIR}")
run("Program of kavo_formats.pc" "${WORK_DIR}/use_pkg_config")

# The project that the tutorial ends with.
set(tutorial "${WORK_DIR}/tutorial")
file(READ "${SOURCE_DIR}/docs/tutorial.md" document)
foreach(part IN ITEMS "cpp my_plan.cpp" "cmake CMakeLists.txt")
  string(REGEX REPLACE "^[a-z]+ " "" name "${part}")
  if(NOT document MATCHES "```${part}\n([^`]*)```")
    message(FATAL_ERROR "docs/tutorial.md has no ${part}")
  endif()
  file(WRITE "${tutorial}/${name}" "${CMAKE_MATCH_1}")
endforeach()

configure_project("Configuration of the consumer" "${CONSUMER_DIR}" "${build}" "-DCMAKE_PREFIX_PATH=${prefix}"
                  "-DALL_HEADERS_SOURCE=${WORK_DIR}/all_headers.cpp" "-DTUTORIAL_DIR=${tutorial}")
load_cache("${build}" READ_WITH_PREFIX consumer_ kavo_DIR)
string(FIND "${consumer_kavo_DIR}" "${prefix}/" position)
if(NOT position EQUAL 0)
  message(FATAL_ERROR "The consumer found another Kavo, at ${consumer_kavo_DIR}")
endif()

run("Build of the consumer" "${CMAKE_COMMAND}" --build "${build}" --parallel)
foreach(room IN LISTS rooms)
  run("Program of kavo::${room}" "${build}/use_${room}")
endforeach()
set(own_robot "${SOURCE_DIR}/examples/own_robot")
run("Program of the tutorial" "${build}/tutorial/my_plan" "${own_robot}/arm.urdf" "${own_robot}/arm.srdf"
    "${own_robot}/scene.yaml")

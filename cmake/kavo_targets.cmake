# How every target of this project is built. Nothing here reaches a user's own targets.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(KAVO_CCACHE ccache)
if(PROJECT_IS_TOP_LEVEL AND KAVO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${KAVO_CCACHE}")
  if(KAVO_PRECOMPILE_HEADERS)
    # It cannot see which macros a precompiled header defines; none of these depends on the source that uses it.
    list(PREPEND CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros)
  endif()
endif()

# Vectors stand in arrays and in structs, which those of a width unknown to the compiler cannot.
set(kavo_disabled_targets)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(kavo_disabled_targets HWY_SVE HWY_SVE2 HWY_SVE_256 HWY_SVE2_128)
endif()
if(KAVO_SANITIZE)
  add_compile_options(-fsanitize=${KAVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KAVO_SANITIZE})
endif()
if(KAVO_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
if(KAVO_SANITIZE OR KAVO_COVERAGE)
  # The code for wide vectors is written once: one width and none show its faults. Each width takes minutes to compile.
  list(APPEND kavo_disabled_targets HWY_AVX3_DL HWY_AVX3 HWY_SSE4 HWY_SSSE3)
  add_compile_definitions(KAVO_LANE_INLINE=inline)
endif()
if(kavo_disabled_targets)
  list(JOIN kavo_disabled_targets "|" kavo_disabled_targets)
  add_compile_definitions("HWY_DISABLED_TARGETS=(${kavo_disabled_targets})")
endif()

# Equal settings give equal bits on every compiler and machine: no operation is fused, none is reordered.
add_library(kavo_build_flags INTERFACE)
target_compile_options(kavo_build_flags INTERFACE -ffp-contract=off -fno-fast-math)
target_compile_options(
  kavo_build_flags
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wnon-virtual-dtor
            -Wold-style-cast
            -Wcast-align
            -Woverloaded-virtual
            -Wconversion
            -Wdouble-promotion
            -Wformat=2
            $<$<BOOL:${KAVO_WARNINGS_AS_ERRORS}>:-Werror>)
if(KAVO_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Under the sanitizers g++ takes parts of the standard library (std::regex, for one) for uninitialised.
  target_compile_options(kavo_build_flags INTERFACE -Wno-maybe-uninitialized)
endif()

# The command and the tests spend their time in the libraries: to optimise their own code takes long and gains nothing.
add_library(kavo_light_optimisation INTERFACE)
target_compile_options(kavo_light_optimisation INTERFACE $<IF:$<CONFIG:Debug>,-O0,-O1>)

if(KAVO_PRECOMPILE_HEADERS AND NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "KAVO_PRECOMPILE_HEADERS needs clang: g++ 12 now and then writes headers that it falls over later")
endif()

# kavo_precompile_headers(<set> <target> [headers...])
#
# Most of the time of a build goes into reading the same headers. The first target of a set compiles what nearly all sources
# include, and these headers; the others reuse it, and so have to be built with the same flags. A source still includes
# all that it uses: without KAVO_PRECOMPILE_HEADERS nothing is given to it.
function(kavo_precompile_headers set target)
  if(NOT KAVO_PRECOMPILE_HEADERS)
    return()
  endif()
  get_property(first GLOBAL PROPERTY kavo_precompiled_${set})
  if(first)
    target_precompile_headers(${target} REUSE_FROM ${first})
    return()
  endif()
  set_property(GLOBAL PROPERTY kavo_precompiled_${set} ${target})
  target_precompile_headers(
    ${target}
    PRIVATE
    <algorithm>
    <array>
    <cmath>
    <cstddef>
    <cstdint>
    <functional>
    <iostream>
    <limits>
    <map>
    <memory>
    <optional>
    <random>
    <sstream>
    <stdexcept>
    <string>
    <unordered_map>
    <utility>
    <variant>
    <vector>
    <Eigen/Core>
    <Eigen/Geometry>
    ${ARGN})
  # Otherwise the compiler's cache sees another header in each build directory.
  target_compile_options(${target} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
endfunction()

# kavo_depend(<target> <what pkg-config links it by> <find_package arguments...>)
#
# Finds a library that Kavo's libraries link. Whoever links these by CMake finds it in the same way, and whoever asks
# pkg-config by a module, perhaps with a version, or by a flag of the linker.
macro(kavo_depend target pkg_config)
  find_package(${ARGN} REQUIRED)
  set("kavo_pkg_config_${target}" "${pkg_config}")
  string(REPLACE ";" " " "kavo_find_${target}" "${ARGN}")
endmacro()

# kavo_write_pkg_config(<room> <public targets> <private targets>)
#
# Writes and installs kavo_<room>.pc for projects that do not use CMake. It finds the prefix from where it lies.
function(kavo_write_pkg_config room public private)
  set(requires "")
  set(requires_private "")
  set(libs_private "")
  foreach(kind IN ITEMS public private)
    foreach(target IN LISTS ${kind})
      set(entry "${kavo_pkg_config_${target}}")
      if(target MATCHES "^kavo::(.*)$")
        list(APPEND requires "kavo_${CMAKE_MATCH_1} = ${PROJECT_VERSION}")
      elseif(kind STREQUAL "public")
        list(APPEND requires "${entry}")
      elseif(entry MATCHES "^-")
        string(APPEND libs_private " ${entry}")
      else()
        list(APPEND requires_private "${entry}")
      endif()
    endforeach()
  endforeach()
  list(JOIN requires ", " requires)
  list(JOIN requires_private ", " requires_private)
  set(directory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  file(RELATIVE_PATH to_prefix "/${directory}" "/")
  string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")
  file(
    CONFIGURE
    OUTPUT "${PROJECT_BINARY_DIR}/pkgconfig/kavo_${room}.pc"
    CONTENT
      "prefix=\${pcfiledir}/@to_prefix@
includedir=\${prefix}/@CMAKE_INSTALL_INCLUDEDIR@
libdir=\${prefix}/@CMAKE_INSTALL_LIBDIR@

Name: kavo_@room@
Description: @PROJECT_DESCRIPTION@ (@room@)
Version: @PROJECT_VERSION@
Requires: @requires@
Requires.private: @requires_private@
Cflags: -I\${includedir}
Libs: -L\${libdir} -lkavo_@room@
Libs.private:@libs_private@
"
    @ONLY)
  install(
    FILES "${PROJECT_BINARY_DIR}/pkgconfig/kavo_${room}.pc"
    DESTINATION "${directory}"
    COMPONENT development)
endfunction()

# kavo_add_library(<room> SOURCES ... HEADERS ... [PUBLIC targets...] [PRIVATE targets...] [HEADER_ONLY targets...])
#
# Builds the library kavo_<room> with the alias kavo::<room>, shared unless BUILD_SHARED_LIBS is off. HEADERS are the
# installed ones; each is checked to compile alone. PUBLIC are the targets that they include, PRIVATE those that the sources
# link besides; of these no other than kavo_depend() has found. HEADER_ONLY are those of which nothing is left to link.
function(kavo_add_library room)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;HEADERS;PUBLIC;PRIVATE;HEADER_ONLY")
  set(target kavo_${room})
  add_library(${target} ${arg_SOURCES})
  add_library(kavo::${room} ALIAS ${target})
  target_sources(
    ${target}
    PUBLIC FILE_SET HEADERS
           BASE_DIRS "${PROJECT_SOURCE_DIR}"
           FILES ${arg_HEADERS})
  target_compile_features(${target} PUBLIC cxx_std_17)
  list(TRANSFORM arg_HEADER_ONLY REPLACE "(.+)" "$<BUILD_INTERFACE:\\1>")
  target_link_libraries(
    ${target}
    PUBLIC ${arg_PUBLIC}
    PRIVATE ${arg_PRIVATE} ${arg_HEADER_ONLY} $<BUILD_INTERFACE:kavo_build_flags>)
  set_target_properties(
    ${target}
    PROPERTIES EXPORT_NAME ${room}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
               # Static ones too may end in a shared library, such as the Python module.
               POSITION_INDEPENDENT_CODE ON
               # Nothing asks for it, and it would tell the precompiled headers of the libraries apart.
               DEFINE_SYMBOL ""
               CXX_VISIBILITY_PRESET hidden
               VISIBILITY_INLINES_HIDDEN ON
               VERIFY_INTERFACE_HEADER_SETS ON
               # The libraries find each other wherever the prefix is moved to.
               INSTALL_RPATH "$ORIGIN")
  if(KAVO_BUILD_TESTS OR KAVO_BUILD_BENCHMARKS)
    target_compile_definitions(${target} PRIVATE KAVO_EXPORT_INTERNALS)
  endif()
  kavo_precompile_headers(libraries ${target})

  # A shared library brings what it is linked with.
  if(BUILD_SHARED_LIBS)
    set(arg_PRIVATE "")
  endif()
  kavo_write_pkg_config(${room} "${arg_PUBLIC}" "${arg_PRIVATE}")
  set(needs "")
  foreach(library IN LISTS arg_PUBLIC arg_PRIVATE)
    if(library MATCHES "^kavo::(.*)$")
      get_property(of_room GLOBAL PROPERTY kavo_needs_${CMAKE_MATCH_1})
      list(APPEND needs ${of_room})
    else()
      list(APPEND needs "${kavo_find_${library}}")
    endif()
  endforeach()
  list(REMOVE_DUPLICATES needs)
  set_property(GLOBAL PROPERTY kavo_needs_${room} "${needs}")
  install(
    TARGETS ${target}
    EXPORT kavo_targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    FILE_SET HEADERS COMPONENT development)
endfunction()

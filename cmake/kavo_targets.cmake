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

if(KAVO_SANITIZE)
  add_compile_options(-fsanitize=${KAVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KAVO_SANITIZE})
  # The code for wide vectors is written once: one width and none show its faults. Each width takes minutes to compile.
  add_compile_definitions("HWY_DISABLED_TARGETS=(HWY_AVX3_DL|HWY_AVX3|HWY_SSE4|HWY_SSSE3)" KAVO_LANE_INLINE=inline)
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

# kavo_write_pkg_config(<room> <public targets>)
#
# Writes and installs kavo_<room>.pc for projects that do not use CMake. It finds the prefix from where it lies.
function(kavo_write_pkg_config room public)
  list(TRANSFORM public REPLACE "^kavo::(.*)$" "kavo_\\1 = ${PROJECT_VERSION}")
  list(TRANSFORM public REPLACE "^Eigen3::Eigen$" "eigen3 >= 3.4")
  list(JOIN public ", " requires)
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
Cflags: -I\${includedir}
Libs: -L\${libdir} -lkavo_@room@
"
    @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/pkgconfig/kavo_${room}.pc" DESTINATION "${directory}")
endfunction()

# kavo_add_library(<room> SOURCES ... HEADERS ... [PUBLIC targets...] [PRIVATE targets...])
#
# Builds the shared library kavo_<room> with the alias kavo::<room>. HEADERS are the installed ones; each is checked to
# compile alone.
function(kavo_add_library room)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;HEADERS;PUBLIC;PRIVATE")
  set(target kavo_${room})
  add_library(${target} SHARED ${arg_SOURCES})
  add_library(kavo::${room} ALIAS ${target})
  target_sources(
    ${target}
    PUBLIC FILE_SET HEADERS
           BASE_DIRS "${PROJECT_SOURCE_DIR}"
           FILES ${arg_HEADERS})
  target_compile_features(${target} PUBLIC cxx_std_17)
  target_link_libraries(
    ${target}
    PUBLIC ${arg_PUBLIC}
    PRIVATE ${arg_PRIVATE} $<BUILD_INTERFACE:kavo_build_flags>)
  set_target_properties(
    ${target}
    PROPERTIES EXPORT_NAME ${room}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
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
  kavo_write_pkg_config(${room} "${arg_PUBLIC}")
  install(
    TARGETS ${target}
    EXPORT kavo_targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    FILE_SET HEADERS)
endfunction()

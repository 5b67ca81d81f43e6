# How every target of this project is built. Nothing here reaches a user's own targets.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(KAVO_CCACHE ccache)
if(PROJECT_IS_TOP_LEVEL AND KAVO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${KAVO_CCACHE}")
endif()

if(KAVO_SANITIZE)
  add_compile_options(-fsanitize=${KAVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KAVO_SANITIZE})
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
            # Under the sanitizers g++ takes parts of the standard library (std::regex, for one) for uninitialised.
            $<$<AND:$<BOOL:${KAVO_SANITIZE}>,$<CXX_COMPILER_ID:GNU>>:-Wno-maybe-uninitialized>
            $<$<BOOL:${KAVO_WARNINGS_AS_ERRORS}>:-Werror>)

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
               CXX_VISIBILITY_PRESET hidden
               VISIBILITY_INLINES_HIDDEN ON
               VERIFY_INTERFACE_HEADER_SETS ON
               # The libraries find each other wherever the prefix is moved to.
               INSTALL_RPATH "$ORIGIN")
  install(
    TARGETS ${target}
    EXPORT kavo_targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    FILE_SET HEADERS)
endfunction()

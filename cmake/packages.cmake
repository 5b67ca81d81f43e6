# Debian packages of the components of the installation, by CPack: scripts/package makes and checks them. The libraries' package
# bears the version that programs are linked with, so that two of them can be installed at a time.

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME kavo)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)
file(STRINGS package.xml maintainer REGEX "<maintainer ")
string(REGEX REPLACE ".*email=\"([^\"]+)\">([^<]+)<.*" "\\2 <\\1>" CPACK_PACKAGE_CONTACT "${maintainer}")

# What libraries of other packages are needed is found out, that of the same version of our own is asked for.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "")
foreach(room IN LISTS kavo_rooms)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/kavo/${room}")
endforeach()

# kavo_package(<component> <package> <section> <description>)
macro(kavo_package component package section description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
endmacro()

set(CPACK_COMPONENTS_ALL "")
set(version "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")
kavo_package(runtime libkavo${version} libs "The shared libraries: robots, worlds, planners, trajectories and file formats.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_LIST_DIR}/debian/triggers")
kavo_package(development libkavo-dev libdevel "The headers, and what CMake and pkg-config find the libraries by.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libeigen3-dev (>= 3.4)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS kavo-doc)
if(KAVO_BUILD_APPS)
  kavo_package(tools kavo science "The command kavo: plans, checks, benchmarks, and pages that show them.")
  set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS kavo-doc)
endif()
if(KAVO_BUILD_PYTHON)
  kavo_package(python python3-kavo python "The Python module kavo: all queries of the planner, over NumPy arrays.")
  set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
  # The module is made for one version of the interpreter.
  get_directory_property(minor DIRECTORY bindings/python DEFINITION Python_VERSION_MINOR)
  math(EXPR next "${minor} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.${minor}), python3 (<< 3.${next}), python3-numpy")
  # For batches of queries.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-distributed, python3-pandas")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_LIST_DIR}/debian/postinst"
                                                "${CMAKE_CURRENT_LIST_DIR}/debian/prerm")
endif()
kavo_package(doc kavo-doc doc "Documents and examples.")
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)

set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/debian/complete.cmake")
set(CPACK_KAVO_SOURCE_DIR "${PROJECT_SOURCE_DIR}")
include(CPack)

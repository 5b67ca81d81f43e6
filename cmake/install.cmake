# Gives another project find_package(kavo CONFIG) with the targets kavo::<room>. Components of the installation: runtime,
# development, tools, python, doc.

include(CMakePackageConfigHelpers)

set(kavo_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kavo")
set(kavo_needs "")
foreach(room IN LISTS kavo_rooms)
  get_property(needs GLOBAL PROPERTY kavo_needs_${room})
  list(JOIN needs "\" \"" needs)
  string(APPEND kavo_needs "set(kavo_needs_${room} \"${needs}\")\n")
endforeach()
configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/kavo-config.cmake.in" "${PROJECT_BINARY_DIR}/kavo-config.cmake"
  INSTALL_DESTINATION "${kavo_package_dir}")
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/kavo-config-version.cmake"
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(
  EXPORT kavo_targets
  NAMESPACE kavo::
  FILE kavo-targets.cmake
  DESTINATION "${kavo_package_dir}"
  COMPONENT development)
set(package_files "${PROJECT_BINARY_DIR}/kavo-config.cmake" "${PROJECT_BINARY_DIR}/kavo-config-version.cmake")
if(kavo_needs MATCHES KavoAssimp)
  list(APPEND package_files "${CMAKE_CURRENT_LIST_DIR}/FindKavoAssimp.cmake")
endif()
install(
  FILES ${package_files}
  DESTINATION "${kavo_package_dir}"
  COMPONENT development)

# By which a ROS workspace knows what is installed.
install(
  FILES package.xml
  DESTINATION "${CMAKE_INSTALL_DATADIR}/kavo"
  COMPONENT development)

# What a reader looks for beside the libraries.
install(
  FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT doc)
install(
  DIRECTORY docs/
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs"
  COMPONENT doc
  FILES_MATCHING
  PATTERN "*.md"
  PATTERN "*.json"
  PATTERN "*.png"
  PATTERN "*.svg")
install(
  DIRECTORY examples
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT doc)

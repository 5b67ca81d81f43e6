# Gives another project find_package(kavo CONFIG) with the targets kavo::<room>.

include(CMakePackageConfigHelpers)

set(kavo_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kavo")
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
  DESTINATION "${kavo_package_dir}")
install(FILES "${PROJECT_BINARY_DIR}/kavo-config.cmake" "${PROJECT_BINARY_DIR}/kavo-config-version.cmake"
        DESTINATION "${kavo_package_dir}")

# What a reader looks for beside the libraries.
install(FILES LICENSE README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs/ DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs")
install(DIRECTORY examples DESTINATION "${CMAKE_INSTALL_DOCDIR}")

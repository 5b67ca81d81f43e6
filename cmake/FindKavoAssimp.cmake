# Finds assimp and makes the target KavoAssimp::KavoAssimp. Its own package would have what it is made of linked as well, which
# takes more than the package has installed.

find_path(KAVO_ASSIMP_INCLUDE_DIR assimp/Importer.hpp)
find_library(KAVO_ASSIMP_LIBRARY assimp)
mark_as_advanced(KAVO_ASSIMP_INCLUDE_DIR KAVO_ASSIMP_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(KavoAssimp REQUIRED_VARS KAVO_ASSIMP_LIBRARY KAVO_ASSIMP_INCLUDE_DIR)

if(KavoAssimp_FOUND AND NOT TARGET KavoAssimp::KavoAssimp)
  add_library(KavoAssimp::KavoAssimp UNKNOWN IMPORTED)
  set_target_properties(KavoAssimp::KavoAssimp PROPERTIES IMPORTED_LOCATION "${KAVO_ASSIMP_LIBRARY}"
                                                          INTERFACE_INCLUDE_DIRECTORIES "${KAVO_ASSIMP_INCLUDE_DIR}")
endif()

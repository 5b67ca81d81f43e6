#pragma once

#include <string>

#include "kavo/formats/surface_internal.h"

namespace kavo::formats {

//! The surface in an STL, OBJ or DAE file; its vertices may be NaN or infinite. Throws `FileError` for what
//! assimp refuses, and for every file in a build without assimp.
//! \param file Name for errors.
//! \param ending "stl", "obj" or "dae".
Surface ReadByAssimp(const std::string& content, const std::string& file, const std::string& ending);

}  // namespace kavo::formats

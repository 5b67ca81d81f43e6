#pragma once

#include <Eigen/Core>
#include <memory>
#include <string>

#include "kavo/util/export.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

//! Reads a mesh: STL (ASCII and binary), OBJ, DAE (COLLADA) or PLY (ASCII and binary), by the ending of its
//! name. Polygons become triangles; lines, points, colours and all else but the surface are passed over. The
//! nodes of a DAE are placed in each other; of its `<asset>`, `<unit>` is applied and `<up_axis>` is not, as
//! is usual for meshes of robots. Coordinates are taken as single-precision numbers. The same file gives the
//! same mesh, bit for bit.
//!
//! \param scale By axis; each finite and not zero, anything else is a fatal error.
//! Throws `FileError` for a file that cannot be read, is larger than 256 MiB or has more than two million
//! triangles, for another ending, for a vertex that is not finite, and for a file without a triangle; also
//! where Kavo was built without assimp, which reads all but PLY.
KAVO_EXPORT std::shared_ptr<const TriangleMesh> ReadMesh(
    const std::string& file, const Eigen::Vector3d& scale = Eigen::Vector3d::Ones());

//! The same from what is in the file. Of its name, only the ending is used, and for errors.
KAVO_EXPORT std::shared_ptr<const TriangleMesh> ParseMesh(
    const std::string& content, const std::string& file,
    const Eigen::Vector3d& scale = Eigen::Vector3d::Ones());

}  // namespace kavo::formats

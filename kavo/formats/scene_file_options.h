#pragma once

#include "kavo/formats/octree_file.h"
#include "kavo/formats/resource.h"
#include "kavo/world/obstacle.h"

namespace kavo::formats {

//! How the files of scenes and requests are taken.
struct SceneFileOptions {
  //! Where meshes that they name are looked for, as `FindResource` does.
  PackageFolders packages;
  //! What counts as the inside of their meshes.
  Interior mesh_interior = Interior::kIfClosed;
  //! For octrees in them.
  OctreeFileOptions octrees;
};

}  // namespace kavo::formats

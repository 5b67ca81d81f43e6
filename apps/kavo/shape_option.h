#pragma once

#include <string>

#include "kavo/formats/octree_file.h"
#include "kavo/formats/point_cloud_file.h"
#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"

namespace kavo::command {

//! A shape and where it is, as the text of an option says: SHAPE@PLACE.
struct PlacedShapeText {
  //! The name of a file, or a kind with its sizes.
  std::string shape;
  //! Empty for that of the files, the world.
  std::string frame;
  //! In that frame.
  Pose3 pose;
};

//! Takes apart SHAPE[@x,y,z[,qx,qy,qz,qw]] or, with a frame, SHAPE@FRAME[,x,y,z[,qx,qy,qz,qw]]: metres, and a
//! quaternion of any length but zero. A text that is the name of a file as it stands is that file, without a
//! place. Throws `UnusableInput`, which begins with the name of the option.
//! \param option Such as "--obstacle".
//! \param has_frame Whether the place begins with the name of a frame.
PlacedShapeText ParsePlacedShape(const std::string& option, const std::string& text, bool has_frame);

//! How the files of shapes are taken.
struct ShapeFileOptions {
  formats::PointCloudOptions points;
  formats::OctreeFileOptions octrees;
  Interior mesh_interior = Interior::kIfClosed;
};

//! A shape under the name that it has by itself: of its file, without folder and ending, or of its kind.
struct NamedShape {
  std::string name;
  ObstacleShape shape;
};

//! The file that is named in the text of a shape; empty for a kind with its sizes.
std::string FileOfShape(const std::string& text);

//! The shape that a text stands for: box:X,Y,Z, sphere:R, cylinder:R,H, capsule:R,H, cone:R,H (metres), or a
//! file, whose ending and content tell what it is: a mesh (.stl, .obj, .dae, .ply with faces), which may be
//! scaled (FILE:SCALE), a cloud of points (.pcd, .xyz, .txt, .csv, .ply without faces) or an octree (.bt,
//! .ot). Throws `UnusableInput`, which begins with the name of the option, or `formats::FileError`.
NamedShape ReadShape(const std::string& option, const std::string& text, const ShapeFileOptions& options);

//! What a shape is, for a reader: "box", "mesh" and so on.
std::string KindOf(const ObstacleShape& shape);

//! Its sizes, or what it is made of: "0.1 x 0.2 x 0.3 m", "1200 triangles, closed", "open (12 edges)".
std::string SizeText(const ObstacleShape& shape);

}  // namespace kavo::command

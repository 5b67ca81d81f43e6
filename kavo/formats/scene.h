#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/allowed_collisions.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/scene_file_options.h"
#include "kavo/formats/scene_object.h"
#include "kavo/formats/unhonoured.h"
#include "kavo/math/pose3.h"
#include "kavo/util/export.h"
#include "kavo/world/world.h"
#include "kavo/world/world_view.h"

namespace kavo::formats {

//! The obstacles around a robot, as a scene file gives them. Metres and radians.
struct Scene {
  //! As the file has it; may be empty.
  std::string name;
  //! In the order of the file. Ids differ: an object whose id came before takes the place of the former one.
  std::vector<SceneObject> objects;
  //! What the robot holds: none of these is among the objects.
  std::vector<AttachedObject> attached;
  //! Joint values by name, as far as the file gives any.
  std::map<std::string, double> joint_state;
  //! Pose of the robot base in the world.
  Pose3 base_pose;
  //! Which contacts are allowed, if the file says so.
  std::optional<AllowedCollisions> allowed_collisions;
  //! Metres by which the spheres of links are to be larger, by link; at least zero.
  std::map<std::string, double> link_padding;
  //! Name of the file, for messages.
  std::string file;
  //! What the file asks for and is not done, in its order.
  std::vector<Unhonoured> unhonoured;
};

//! Poses of frames by name, relative to the robot base.
using FramePoses = std::map<std::string, Pose3>;

//! Reads a planning scene: the YAML form, or the text form that is exported to `.scene` files. The two are
//! told apart by their content: in the text form the second line starts with a star or is a dot.
//!
//! Shapes are boxes, spheres, cylinders, cones, meshes and planes. A plane a x + b y + c z + d = 0 stands for
//! a solid half-space, the side on which a x + b y + c z + d <= 0: its normal points away from what is solid.
//! A mesh is given by vertices and triangles or, in YAML, by `resource` (or `mesh_resource`), the name of a
//! file as `FindResource` takes it, with a `scale` (or `dimensions`). An octomap with data becomes an object
//! "<octomap>". Other shapes are refused by the name of their object. A scale of links is listed as not
//! honoured; keys without a meaning for planning are ignored. There is a warning for a scene without any
//! obstacle.
//!
//! Throws `FileError` for a file that cannot be read or does not have this form.
//!
//! @code
//! const kavo::formats::Scene scene = kavo::formats::ReadScene("examples/own_robot/scene.yaml");
//! assert(scene.unhonoured.empty());
//! kavo::World world;
//! assert(kavo::formats::AddToWorld(scene, world).size() == 3);
//! @endcode
KAVO_EXPORT Scene ReadScene(const std::string& file, const SceneFileOptions& options = {});

//! The same from the text of a file in either form, with a name for its errors.
KAVO_EXPORT Scene ParseScene(const std::string& text, const std::string& file,
                             const SceneFileOptions& options = {});

//! The planning-scene YAML: `world: {collision_objects: [...]}`, or `collision_objects` at the root, with
//! `robot_state` beside it. The text of a file, and the name for its errors. Poses are {position,
//! orientation}, with vectors as [x, y, z] or {x, y, z}, quaternions as [x, y, z, w] or {x, y, z, w}. A
//! cylinder or a cone is [height, radius].
KAVO_EXPORT Scene ParseSceneYaml(const std::string& text, const std::string& file,
                                 const SceneFileOptions& options = {});

//! The exported text, in its old form (the poses of the shapes are in the world) and its new form (an object
//! has a pose, shapes are relative to it, and subframes follow). A cylinder or a cone is radius, then length;
//! a mesh is the numbers of its vertices and triangles, then a line for each of them.
KAVO_EXPORT Scene ParseSceneText(const std::string& text, const std::string& file,
                                 const SceneFileOptions& options = {});

//! Takes what is attached out of the objects of a scene: it is no longer in the world. An attached object
//! without a shape gets that of the object of its id, with its frame.
KAVO_EXPORT void TakeAttached(Scene& scene, std::vector<AttachedObject>& attached);

//! Adds all parts of all objects to the world, named by the id of their object, relative to the robot base.
//! \param frames The frames that objects may be given in beside those of the file. Throws `FileError` for an
//!     object in another frame, without adding any.
//! \return The new obstacles, in the order of objects and parts.
KAVO_EXPORT std::vector<ObstacleHandle> AddToWorld(const Scene& scene, World& world,
                                                   const FramePoses& frames = {});

}  // namespace kavo::formats

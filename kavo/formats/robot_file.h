#pragma once

#include <Eigen/Core>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/resource.h"
#include "kavo/formats/srdf.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! How a robot is to be made from its files.
struct RobotFileOptions {
  //! A file beside the URDF, as is the next; empty for none. `ParseRobot` takes texts instead and ignores
  //! both.
  std::string srdf_file;
  //! A file that gives links their spheres, see docs/formats.md; they replace those of the SRDF.
  std::string spheres_file;

  //! The c-space: the joints of an SRDF group, or the joints of a list, or, with neither, all joints that
  //! move. Fixed joints and those that mimic another one are no coordinates: a group may contain them, a list
  //! may not. Giving both is an error.
  //!
  //! Coordinates are in the order of the list; otherwise in that of the kinematic tree, depth first, children
  //! of a link in the order of the file.
  std::string group;
  //! Names of joints that move; empty for those of the group.
  std::vector<std::string> joints;

  //! Values, by name, at which joints outside the c-space stay (radians, metres; within their limits). The
  //! others stay at zero, or at the limit nearest to zero when that is out of range.
  std::map<std::string, double> joint_values;

  //! Whether links that get no spheres from elsewhere, and whose collision geometry is not spheres alone, are
  //! covered by spheres: every point of the union of a link's solids lies in one, and none reaches beyond
  //! that union by more than a tolerance (`CoverBySpheres`). Without, spheres of the geometry stand for
  //! themselves and the rest is listed in `uncovered_links`.
  bool cover = true;
  //! The tolerance (metres, positive and finite; anything else is a fatal error); without one, it follows
  //! from the size of each link (`DefaultCoverTolerance`).
  std::optional<double> cover_tolerance;
  //! No more spheres than this for a link, whatever the tolerance.
  std::optional<std::size_t> max_cover_spheres;
  //! Folder in which covers are kept from one time to the next; empty for none. It is made when it is needed,
  //! and may be deleted at any time.
  std::string cover_cache;
  //! Where meshes are looked for whose names begin with `package://`, see `FindResource`.
  PackageFolders packages;
  //! What happens where a mesh cannot be found or read. If true, there is a warning, its link is listed in
  //! `uncovered_links`, and the link's other solids are covered; if not, a `FileError`.
  bool allow_unreadable_meshes = false;

  //! Whether the robot is to know the pairs of frames that must not touch each other: all pairs of links with
  //! spheres, but for those on one rigid body (only fixed joints between them) and those that the SRDF
  //! disables. Without an SRDF, or with one that disables none, bodies joined by one joint count as disabled.
  //! Joints that are not planned for count like others: where they stand, links may touch.
  bool self_collision = false;
  //! The same, but only with an SRDF that disables a pair: somebody has worked them out.
  bool self_collision_if_listed = false;
};

//! The text of a file and its name: for errors, and for a URDF to find the meshes that it names.
struct FileText {
  //! Name of the file, for messages and for finding meshes beside it.
  std::string file;
  //! All that is in it.
  std::string text;
};

//! A robot from its files.
struct LoadedRobot {
  //! What it was made from, for whoever wants to draw it.
  struct Origin {
    //! The URDF as it was read.
    FileText urdf;
    //! Where its meshes were looked for.
    PackageFolders packages;
  };

  //! What stands for the collision geometry of a link.
  struct LinkShape {
    //! Where its spheres come from.
    enum class Source {
      //! Spheres of the file of spheres, of the SRDF, or of the collision geometry itself.
      kSpheresFile,
      kSrdf,
      kUrdf,
      //! Spheres that cover the collision geometry.
      kCover,
      //! Nothing.
      kNone,
    };

    //! Its name.
    std::string link;
    //! What its spheres come from.
    Source source = Source::kNone;
    //! How many spheres stand for it.
    std::size_t num_spheres = 0;
    //! Spheres of its collision geometry.
    std::size_t num_balls = 0;
    //! Boxes of its collision geometry.
    std::size_t num_boxes = 0;
    //! Cylinders of its collision geometry.
    std::size_t num_cylinders = 0;
    //! Meshes of its collision geometry.
    std::size_t num_meshes = 0;
    //! Of a cover, as are all below: the files of its meshes.
    std::vector<std::string> mesh_files;
    //! Of all of these meshes together.
    std::size_t num_triangles = 0;
    //! How far spheres may reach beyond the geometry (metres).
    double tolerance = 0.0;
    //! A bound for how far they do (metres).
    double bulge = 0.0;
    //! How long it took to read the meshes and to make the cover, or to find it made.
    double seconds = 0.0;
  };

  //! A link with a collision solid that no sphere stands for.
  struct UncoveredLink {
    //! Of the link.
    std::string name;
    //! Its first such solid: "box", "cylinder" or "mesh".
    std::string kind;
  };

  //! A joint that is no coordinate of the c-space.
  struct OtherJoint {
    //! Why it is none.
    enum class Kind {
      //! It could move, but stays where it is.
      kHeld,
      //! It mimics another joint.
      kFollower,
      kFixed,
      //! Between the world and the robot, from the SRDF.
      kVirtual,
    };

    //! See `Kind`.
    Kind kind = Kind::kFixed;
    //! It is at `multiplier` times this coordinate plus `offset`; without a coordinate, at `offset`.
    std::optional<std::size_t> coordinate;
    //! Of a joint that follows: times the coordinate's value.
    double multiplier = 0.0;
    //! Radians or metres.
    double offset = 0.0;
    //! Of one that is held: where it stands unless it is given a value.
    double rest = 0.0;
    //! As the URDF has them; zero to zero for a joint that cannot move.
    kinematics::JointLimits limits{0.0, 0.0};

    //! Radians or metres.
    double value(const Eigen::VectorXd& q) const {
      return coordinate ? multiplier * q[static_cast<Eigen::Index>(*coordinate)] + offset : offset;
    }
  };

  //! Frames have the names of the links; the base frame is the root link. The default configuration is the
  //! first of the named configurations "ready", "home" and "default" that exists and is within the limits;
  //! without one, the middle of the limits.
  std::shared_ptr<RobotDescription> description;
  //! Of the robot, as the URDF has it.
  std::string name;
  //! The group states of the SRDF that give every coordinate a value, in c-space order. Where states of
  //! several groups have one name, that of the chosen group stands. They may be outside the limits.
  std::map<std::string, Eigen::VectorXd> named_configurations;
  //! What is known of how fast the coordinates may move, infinite where nothing is (see
  //! `planning::WithDefaults`): of a URDF, the velocities that it states and that are positive. Those of
  //! joints that follow others are not enforced.
  planning::MotionLimits motion_limits;
  //! Those of the SRDF, in its order.
  std::vector<Srdf::EndEffector> end_effectors;
  //! Links of whose collision geometry a part is not covered by spheres, in kinematic order.
  std::vector<UncoveredLink> uncovered_links;
  //! Of each link with collision geometry or spheres, in kinematic order.
  std::vector<LinkShape> link_shapes;
  //! The joints of the URDF that are no coordinates, and the virtual joints of the SRDF, by name.
  std::map<std::string, OtherJoint> other_joints;
  //! Null without one.
  std::shared_ptr<const Srdf> srdf;
  //! Null for a robot that is not from a file.
  std::shared_ptr<const Origin> origin;
  //! The links with spheres, and of each the rigid body that it belongs to.
  std::map<std::string, std::size_t> bodies;
  //! The frame that positions are most likely asked for: the tip of the chosen group's first chain (its
  //! own, or that of a group that belongs to it); else the link that carries the end effector of the chosen
  //! group; else the link that the most coordinates move, of these the one with the most joints before it, of
  //! these the first.
  std::string tip_frame;
};

//! The files of a robot, read and checked once. From them the robot is made as often as it is wanted, with
//! the joints outside the c-space wherever they stand. Immutable; copies share what was read.
//!
//! Revolute, continuous, prismatic and fixed joints. A continuous joint turns as far as it likes: bounds that
//! its `<limit>` states are ignored. A bound that the `<limit>` of another joint does not state is zero. A
//! range of over a thousand turns or a kilometre is warned about: planning takes long in it. A joint that
//! mimics another one follows it, also along a chain of such joints; its own limits are not enforced. If the
//! joint at the end of that chain does not move, neither does the follower.
//!
//! Rotations come from roll, pitch and yaw by portable sines and cosines. An angle within 1e-10 of a multiple
//! of pi/2 is one that was rounded when it was written, and is taken as that multiple exactly.
//!
//! The spheres of a link come from the file of spheres (YAML, `link: [{center: [x, y, z], radius: r}]`, by
//! itself, under `collision_spheres`, or under that in `robot_cfg: {kinematics: ...}`; centres in the link's
//! frame); else from the SRDF; else from its collision geometry, which is spheres alone or is covered by
//! spheres, unless the options say otherwise. Inertias, materials and transmissions are not looked at, and
//! visuals only by those who draw (`DrawRobot`): a visual mesh may be missing.
//!
//! @code
//! kavo::formats::RobotFileOptions options;
//! options.srdf_file = "examples/own_robot/arm.srdf";
//! options.group = "arm";
//! options.self_collision_if_listed = true;
//! const auto files = kavo::formats::RobotFiles::Read("examples/own_robot/arm.urdf", options);
//! const kavo::formats::LoadedRobot robot = files.make({{"gripper", 0.02}});
//! assert(robot.description->numCSpaceCoords() == 5 && robot.tip_frame == "tool");
//! assert(robot.named_configurations.count("home") == 1);
//! @endcode
class KAVO_EXPORT RobotFiles {
 public:
  //! From the texts of files. Throws `FileError` for whatever is wrong in one, and for a name in the options
  //! that they do not know, with the names they do know. Floating and planar joints are refused.
  RobotFiles(const FileText& urdf, const std::optional<FileText>& srdf,
             const std::optional<FileText>& spheres, const RobotFileOptions& options = {});

  //! Throws `FileError` too for a file that cannot be read.
  static RobotFiles Read(const std::string& urdf_file, const RobotFileOptions& options = {});

  //! The robot.
  //! \param state Joint values by name, such as those of a scene: joints outside the c-space that the options
  //!     give no value stand there (also beyond their limits). Other names are passed over, and so is a value
  //!     that is not finite.
  LoadedRobot make(const std::map<std::string, double>& state = {}) const;

 private:
  class Impl;
  std::shared_ptr<const Impl> impl_;
};

//! The robot of a URDF file and the files beside it, without any state. There is one warning for links that
//! are not covered. Throws as `RobotFiles` does.
KAVO_EXPORT LoadedRobot LoadRobot(const std::string& urdf_file, const RobotFileOptions& options = {});

//! The same from the texts of files.
KAVO_EXPORT LoadedRobot ParseRobot(const FileText& urdf, const std::optional<FileText>& srdf,
                                   const std::optional<FileText>& spheres,
                                   const RobotFileOptions& options = {});

}  // namespace kavo::formats

#pragma once

#include <Eigen/Core>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/input_rules.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/scene_options.h"
#include "apps/kavo/situation.h"
#include "kavo/formats/request.h"
#include "kavo/formats/scene.h"
#include "kavo/motion_planning/interface/stage.h"

namespace kavo::command {

//! Brings the files about a robot together. Whatever they ask for that cannot be had ends in `UnusableInput`
//! or `formats::FileError`, unless the rules let it pass.
class Situations {
 public:
  //! The options must outlive this object.
  //! \param scene How scenes are read, and what stands around the robot beside them.
  Situations(RobotModel robot, const InputRules& rules, const SceneOptions& scene)
      : robot_(std::move(robot)), rules_(rules), scene_(scene) {}

  //! The robot without any state.
  const formats::LoadedRobot& Robot() { return *robot_.Make({}); }

  //! \param request Null without one. Its state goes before that of the scenes, joint by joint, and its base
  //!     pose before theirs.
  //! \param start Goes before both. Without one, joints that neither names start in the default configuration.
  Situation Read(const std::vector<std::string>& scene_files, const formats::Request* request,
                 const std::optional<Eigen::VectorXd>& start = {});

  //! The goals of the request; joints that a goal does not name stay where they start. Throws `UnusableInput`
  //! without a goal, for one that names none of the robot's joints, and for one that is more than joint
  //! values or a pose of one link.
  std::vector<Goal> GoalsOf(const formats::Request& request, Situation& situation);

  //! Where a frame is relative to the robot's base: one of the robot's (one that moves is taken where it is
  //! at the start, which is said) or the one that its base stands in. Empty for others.
  //! \param what Is given in it, for the note.
  std::optional<Pose3> FindFrame(const std::string& frame, const std::string& what,
                                 const Situation& situation);

  const InputRules& Rules() const { return rules_; }
  Notes& GetNotes() { return notes_; }

 private:
  using JointValues = std::map<std::string, double>;

  void CheckNames(const std::string& file, const JointValues& joints);
  void CheckState(const JointValues& state, const formats::LoadedRobot& robot, const Eigen::VectorXd& start);
  void CheckFollowers(const std::string& what, const JointValues& joints, const formats::LoadedRobot& robot,
                      const Eigen::VectorXd& q);
  static void CheckHeld(const std::string& file, const JointValues& joints,
                        const formats::LoadedRobot& robot);
  void CutOutRobot(double margin, const formats::FramePoses& frames, const Situation& situation,
                   formats::Scene& scene);
  static void TakeAttached(const formats::Request& request, std::vector<formats::Scene>& scenes);
  std::shared_ptr<RobotDescription> Attach(const std::vector<formats::Scene>& scenes, Situation& situation);
  void PlaceObjects(std::vector<formats::Scene>& scenes, Situation& situation);
  Goal GoalOf(const formats::Request& request, const formats::Request::Goal& goal, Situation& situation);
  // Where the frame of a constraint is relative to the robot's base: of a position or an orientation.
  template <typename Target>
  Pose3 FrameOf(const Target& target, const char* kind, const std::string& file, Situation& situation);

  RobotModel robot_;
  const InputRules& rules_;
  const SceneOptions& scene_;
  Notes notes_;
};

}  // namespace kavo::command

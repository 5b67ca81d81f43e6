#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/shape_option.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/world/world.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! The options that say what the robot holds, what may touch what, and how far it has to stay away.
class ContactOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  bool IsEmpty() const { return attached_.empty() && allowed_.empty() && paddings_.empty(); }

  //! The files that are read: what each is, and its name.
  std::vector<std::pair<std::string, std::string>> Files() const;

  //! The robot holding what the options attach to it. Throws `UnusableInput` or `formats::FileError`.
  //! \param taken Names that nothing that is held may have: a number is put behind.
  //! \param held What is attached is added to it.
  std::shared_ptr<RobotDescription> Attach(std::shared_ptr<RobotDescription> robot,
                                           const ShapeFileOptions& shapes, const std::set<std::string>& taken,
                                           std::vector<AttachedObject>& held) const;

  //! The robot under the rules of the options; obstacles that are to be padded are in the world afterwards.
  //! Throws `UnusableInput` for a name that neither the robot nor the world has.
  std::shared_ptr<RobotDescription> Apply(std::shared_ptr<RobotDescription> robot, World& world) const;

 private:
  void Pad(ContactRules& rules, const std::vector<std::string>& frames, World& world) const;

  std::vector<std::string> attached_;
  std::vector<std::string> allowed_;
  std::vector<std::string> paddings_;
};

}  // namespace kavo::command

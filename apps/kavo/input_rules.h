#pragma once

#include <Eigen/Core>
#include <set>
#include <string>
#include <vector>

#include "apps/kavo/scope.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/unhonoured.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! Things that a user should know, each said once, as warnings.
class Notes {
 public:
  void Say(const std::string& text);

 private:
  std::set<std::string> said_;
};

//! The options that say what is to be made of input that is not quite fit: the one place where it is decided.
class InputRules {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  //! Throws `UnusableInput` if something is not to be ignored; what is goes to the scope.
  void Admit(const std::vector<formats::Unhonoured>& unhonoured, Scope& scope) const;

  //! Throws `UnusableInput` for a robot with links that are not covered, unless that is allowed; they then go
  //! to the scope, as do its pairs of frames.
  void Admit(const formats::LoadedRobot& robot, Scope& scope) const;

  bool AllowsUncovered() const { return allows_uncovered_; }

  bool IsIgnored(formats::Unhonoured::Kind kind) const { return ignored_.count(kind) != 0; }

  //! Puts coordinates that are beyond a limit, but by no more than the tolerance, on it, and says so.
  //! \param what For the note, such as "the start".
  void PutOnLimits(const RobotDescription& robot, const std::string& what, Eigen::VectorXd& q,
                   Notes& notes) const;

  double LimitTolerance() const { return limit_tolerance_; }

 private:
  std::set<formats::Unhonoured::Kind> ignored_;
  bool allows_uncovered_ = false;
  double limit_tolerance_ = 1e-4;
};

}  // namespace kavo::command

#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/situations.h"
#include "kavo/math/pose3.h"
#include "kavo/motion_planning/interface/stage.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kavo::command {

//! The options that say from where to where: of a query that no request file holds.
class QueryOptions {
 public:
  //! This object must outlive the parsing.
  //! \param request The option that these exclude.
  void AddOptions(CLI::App& app, CLI::Option* request);

  //! Whether there is a start and something to go to.
  bool IsComplete() const { return !start_.empty() && (HasGoals() || !line_.empty()); }
  //! Whether all goals are configurations.
  bool HasConfigurationsOnly() const;

  //! Where it starts. Throws `UnusableInput` for what cannot be used, as below.
  Eigen::VectorXd Start(const formats::LoadedRobot& robot) const;

  //! The stages of the query, their goals relative to the robot's base.
  std::vector<Stage> Stages(Situations& situations, Situation& situation) const;

 private:
  class Reader;

  // Options that go with what the query has not are refused.
  void CheckUse() const;
  bool HasGoals() const { return !(goals_.empty() && targets_.empty() && poses_.empty()); }

  std::string start_;
  std::vector<std::string> goals_;
  std::vector<std::string> targets_;
  std::vector<std::string> poses_;
  std::string line_;
  std::vector<std::string> then_;
  std::string frame_;
  std::string pose_frame_;
  std::optional<double> position_tolerance_;
  std::optional<double> orientation_tolerance_;
  std::vector<std::string> free_axes_;
  planning::LineOptions line_options_;
};

}  // namespace kavo::command

#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/robot_file.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! The options that say which robot is meant.
class RobotOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  //! The robot; throws `UnusableInput` or `formats::FileError`.
  formats::LoadedRobot Load() const;

 private:
  std::string robot_ = "franka";
  std::string srdf_;
  std::string group_;
  std::vector<std::string> coordinates_;
  std::string spheres_;
  std::vector<std::string> joint_values_;
  std::optional<double> cover_;
  bool self_collision_ = false;
};

//! The names of the coordinates in order.
std::vector<std::string> JointNames(const RobotDescription& robot);

//! The configuration that a text stands for: numbers with commas between them, one for each coordinate, or
//! the name of one. Throws `UnusableInput`.
//! \param option What the text was given for.
Eigen::VectorXd ParseConfiguration(const std::string& option, const std::string& text,
                                   const formats::LoadedRobot& robot);

}  // namespace kavo::command

#pragma once

#include <Eigen/Core>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/link_shapes.h"
#include "kavo/formats/robot_file.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! A robot whose joints that are not planned for stand wherever they are put.
class RobotModel {
 public:
  //! A built-in one, all of whose joints are planned for.
  //! \param packages Where meshes of its surroundings are looked for.
  RobotModel(formats::LoadedRobot robot, formats::PackageFolders packages);
  //! \param group That is planned for; may be empty.
  RobotModel(formats::RobotFiles files, std::string group, formats::PackageFolders packages);

  const std::string& Group() const { return group_; }
  const formats::PackageFolders& Packages() const { return packages_; }

  //! As `formats::RobotFiles::make`. A robot that was made before is handed out again.
  std::shared_ptr<const formats::LoadedRobot> Make(const std::map<std::string, double>& state);

 private:
  std::optional<formats::RobotFiles> files_;
  std::string group_;
  formats::PackageFolders packages_;
  // By the values of the joints that are not planned for.
  std::map<std::map<std::string, double>, std::shared_ptr<const formats::LoadedRobot>> made_;
};

//! The options that say which robot is meant.
class RobotOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  //! The files that are read: what each is, and its name.
  std::vector<std::pair<std::string, std::string>> Files() const;

  const formats::PackageFolders& Packages() const { return link_shapes_.Packages(); }

  //! The robot; throws `UnusableInput` or `formats::FileError`.
  //! \param allows_uncovered Whether a link may be without the meshes that cannot be read.
  RobotModel Load(bool allows_uncovered) const;

 private:
  std::string robot_ = "franka";
  std::string srdf_;
  std::string group_;
  std::vector<std::string> coordinates_;
  LinkShapeOptions link_shapes_;
  std::vector<std::string> joint_values_;
  // Unless said, as far as the pairs that need no looking at are known.
  std::optional<bool> self_collision_;
};

//! The configuration that a text stands for: numbers with commas between them, one for each coordinate, or
//! the name of one. Throws `UnusableInput`.
//! \param option What the text was given for.
Eigen::VectorXd ParseConfiguration(const std::string& option, const std::string& text,
                                   const formats::LoadedRobot& robot);

}  // namespace kavo::command

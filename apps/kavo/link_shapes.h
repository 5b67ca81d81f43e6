#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/robot_file.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! The option that says where packages are.
class PackageOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  const formats::PackageFolders& Folders() const { return folders_; }

 private:
  void Add(const std::string& text);

  formats::PackageFolders folders_;
};

//! Where covers are kept for this user; empty if that is not known.
std::string CoverCacheFolder();

//! The options that say what stands for the collision geometry of a robot's links.
class LinkShapeOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  bool AreGiven() const { return !spheres_.empty() || cover_ || is_uncovered_; }
  //! Whether the spheres are other ones than those of the robot's own files.
  bool GivesSpheres() const { return !spheres_.empty() || cover_; }

  //! The files that are read: what each is, and its name.
  std::vector<std::pair<std::string, std::string>> Files() const { return {{"spheres", spheres_}}; }

  //! Where meshes are looked for: those of the robot, and of its surroundings.
  const formats::PackageFolders& Packages() const { return packages_.Folders(); }

  //! Covers are kept in the user's cache.
  void Apply(formats::RobotFileOptions& options) const;

 private:
  std::string spheres_;
  std::optional<double> cover_;
  bool is_uncovered_ = false;
  PackageOptions packages_;
};

//! What stands for each link, and where it came from.
//! \param shows_work Whether to say how long it took.
std::string LinkShapeTable(const formats::LoadedRobot& robot, bool shows_work);

//! The files of meshes that are covered, each once.
std::vector<std::pair<std::string, std::string>> MeshFiles(const formats::LoadedRobot& robot);

}  // namespace kavo::command

#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/contact_options.h"
#include "apps/kavo/shape_option.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/scene_file_options.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! The options that say which obstacles there are, and how the robot gets on with them.
class SceneOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  //! Whether they say nothing at all.
  bool IsEmpty() const { return scenes_.empty() && obstacles_.empty() && contacts_.IsEmpty(); }

  //! The scenes.
  const std::vector<std::string>& SceneFiles() const { return scenes_; }

  //! All files that are read: what each is, and its name.
  std::vector<std::pair<std::string, std::string>> Files() const;

  //! How the files of scenes are taken.
  //! \param packages Where their meshes are looked for.
  formats::SceneFileOptions FileOptions(const formats::PackageFolders& packages) const;

  //! The obstacles that stand in no scene, as one of their own, in the world of the files. Reads their files;
  //! throws `UnusableInput` or `formats::FileError`.
  //! \param taken Names that none of them may have: a number is put behind.
  formats::Scene Obstacles(std::set<std::string> taken) const;

  //! By how much more than its spheres what the robot itself occupies at the start is cut out of point clouds
  //! and octrees, if it is (metres).
  std::optional<double> CutMargin() const { return cut_margin_; }

  //! How the files of shapes are taken.
  const ShapeFileOptions& Shapes() const { return shapes_; }
  const ContactOptions& Contacts() const { return contacts_; }

 private:
  std::vector<std::string> scenes_;
  std::vector<std::string> obstacles_;
  ShapeFileOptions shapes_;
  std::optional<double> cut_margin_;
  ContactOptions contacts_;
};

}  // namespace kavo::command

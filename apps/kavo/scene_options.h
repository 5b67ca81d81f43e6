#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! The option that says which obstacles there are.
class SceneOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  const std::vector<std::string>& Files() const { return files_; }

 private:
  std::vector<std::string> files_;
};

}  // namespace kavo::command

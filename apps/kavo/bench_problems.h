#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/situations.h"

namespace kavo::command {

//! One problem of a published set: a scene and a request.
struct Problem {
  std::string family;
  //! What stands between "scene" and ".yaml" in the name of its file.
  std::string name;
  std::string scene_file;
  std::string request_file;
  Situation situation;
  Query query;
  //! What the request says about it.
  std::optional<double> allowed_seconds;
  int num_attempts = 1;
};

//! Reads the problems of a folder, in the order of their names: `<family>/scene<name>.yaml` with
//! `request<name>.yaml` beside it, or a folder that is itself one family. Of several goals the first counts.
//! \param families Those wanted; all if empty.
//! Throws as `Situations` does, and `UnusableInput` where there is none.
std::vector<Problem> ReadProblems(const std::string& directory, const std::vector<std::string>& families,
                                  Situations& situations);

}  // namespace kavo::command

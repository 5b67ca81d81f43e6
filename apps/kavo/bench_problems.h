#pragma once

#include <string>
#include <vector>

#include "apps/kavo/queries.h"
#include "kavo/formats/robot_file.h"
#include "kavo/world/world.h"

namespace kavo::command {

//! One problem of a published set: a scene and a request.
struct Problem {
  std::string family;
  //! What stands between "scene" and ".yaml" in the name of its file.
  std::string name;
  LoadedScene scene;
  Query query;
};

//! Reads the problems of a folder, in the order of their names: `<family>/scene<name>.yaml` with
//! `request<name>.yaml` beside it, or a folder that is itself one family. Of several goals the first counts.
//! \param families Those wanted; all if empty.
//! Throws `UnusableInput` where there is none, and `formats::FileError`.
std::vector<Problem> ReadProblems(const std::string& directory, const std::vector<std::string>& families,
                                  const formats::LoadedRobot& robot);

}  // namespace kavo::command

#pragma once

#include <string>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::formats {

//! Something that a file asks for and that is not honoured, although it can change an answer. Readers list
//! them; whether to go on without is for the caller to decide.
struct KAVO_EXPORT Unhonoured {
  //! What it is about; `ToString` gives the word for it.
  enum class Kind {
    kPathConstraints,        //!< Constraints that all of a path is to keep.
    kVisibilityConstraints,  //!< What a sensor is to see at a goal.
    kTrajectoryConstraints,  //!< Constraints that a trajectory is to pass through.
    kLinkScale,              //!< Links that are to be made larger by a factor.
    kUnknownFrames,          //!< Objects and targets in a frame that nobody defines.
    kPositionLimits,         //!< Limits of position beside those of the URDF.
  };

  //! See `Kind`.
  Kind kind = Kind::kPathConstraints;
  //! For a reader, such as `an orientation constraint of a goal`.
  std::string what;
  //! Name of the file.
  std::string file;
  //! First line is 1.
  int line = 0;
};

//! All kinds, in the order above.
KAVO_EXPORT const std::vector<Unhonoured::Kind>& UnhonouredKinds();

//! The name of a kind: "path_constraints" and so on.
KAVO_EXPORT const char* ToString(Unhonoured::Kind kind);

//! "file:line: what".
KAVO_EXPORT std::string ToText(const Unhonoured& unhonoured);

}  // namespace kavo::formats

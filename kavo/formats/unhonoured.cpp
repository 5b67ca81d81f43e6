#include "kavo/formats/unhonoured.h"

#include "kavo/formats/file_error.h"

namespace kavo::formats {

const std::vector<Unhonoured::Kind>& UnhonouredKinds() {
  using Kind = Unhonoured::Kind;
  static const std::vector<Kind> kinds = {Kind::kPathConstraints,       Kind::kVisibilityConstraints,
                                          Kind::kTrajectoryConstraints, Kind::kLinkScale,
                                          Kind::kUnknownFrames,         Kind::kPositionLimits};
  return kinds;
}

const char* ToString(Unhonoured::Kind kind) {
  switch (kind) {
    case Unhonoured::Kind::kPathConstraints:
      return "path_constraints";
    case Unhonoured::Kind::kVisibilityConstraints:
      return "visibility_constraints";
    case Unhonoured::Kind::kTrajectoryConstraints:
      return "trajectory_constraints";
    case Unhonoured::Kind::kLinkScale:
      return "link_scale";
    case Unhonoured::Kind::kUnknownFrames:
      return "unknown_frames";
    case Unhonoured::Kind::kPositionLimits:
      return "position_limits";
  }
  return "unknown";
}

std::string ToText(const Unhonoured& unhonoured) {
  return FileError(unhonoured.file, unhonoured.line, unhonoured.what).what();
}

}  // namespace kavo::formats

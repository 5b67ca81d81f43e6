#pragma once

namespace kavo::planning {

//! How a search for a path ended.
enum class SearchStatus {
  //! There was no search yet, or an exception ended it.
  kNone,
  //! There is a path.
  kFound,
  //! The start is not a valid configuration.
  kInvalidStart,
  //! The target is not a valid configuration, or a position that is not finite.
  kInvalidTarget,
  //! The environment found no valid random configuration.
  kSamplingFailed,
  //! The budget of iterations ran out.
  kIterationsSpent,
  //! The stop condition said so.
  kStopped,
  //! The trees hold as many nodes as they may.
  kNodesSpent,
  //! The start is valid, but nearer to a contact than any motion from it can be proven.
  kStartTooClose,
  //! The same of the target.
  kTargetTooClose,
  //! No configuration has the pose that is the target.
  kUnreachableTarget,
  //! A line cannot be followed to its end.
  kLineEndsEarly,
};

//! "found", "invalid start", and so on.
inline const char* ToString(SearchStatus status) {
  switch (status) {
    case SearchStatus::kNone:
      return "none";
    case SearchStatus::kFound:
      return "found";
    case SearchStatus::kInvalidStart:
      return "invalid start";
    case SearchStatus::kInvalidTarget:
      return "invalid target";
    case SearchStatus::kSamplingFailed:
      return "sampling failed";
    case SearchStatus::kIterationsSpent:
      return "iterations spent";
    case SearchStatus::kStopped:
      return "stopped";
    case SearchStatus::kNodesSpent:
      return "nodes spent";
    case SearchStatus::kStartTooClose:
      return "start too close";
    case SearchStatus::kTargetTooClose:
      return "target too close";
    case SearchStatus::kUnreachableTarget:
      return "unreachable target";
    case SearchStatus::kLineEndsEarly:
      return "line ends early";
  }
  return "unknown";
}

}  // namespace kavo::planning

#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/robot_file.h"
#include "kavo/formats/srdf.h"
#include "kavo/formats/urdf_internal.h"

namespace kavo::formats {

//! Names in quotes, separated by commas, for a message.
class NameList {
 public:
  //! \param more What is to stand behind the quotes.
  void add(const std::string& name, const std::string& more = {});
  bool isEmpty() const { return text_.empty(); }
  //! For the end of a sentence such as "expected one of ...".
  std::string text() const { return text_.empty() ? "nothing (there are none)" : text_; }

 private:
  std::string text_;
};

//! What the joints of a robot do: which are coordinates, and how the others stand or follow. Joints go by
//! their index in the URDF.
struct RobotJoints {
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  //! A joint's value: `multiplier` times a coordinate plus `offset`; without a coordinate, the offset alone.
  struct Motion {
    std::size_t coordinate = kNone;
    double multiplier = 1.0;
    double offset = 0.0;
  };

  //! The joints that are coordinates, in c-space order.
  std::vector<std::size_t> coordinates;
  //! For each joint the coordinate that it is, or `kNone`.
  std::vector<std::size_t> coordinate_of;
  //! For each joint, without any state.
  std::vector<Motion> motions;
  //! Tip of the chosen group's first chain, or of the first one of the groups that belong to it; empty if
  //! there is none.
  std::string chain_tip;

  bool doesMove(std::size_t joint) const { return motions[joint].coordinate != kNone; }
};

//! Chooses the c-space as the options say. Throws `FileError` for names that the files do
//! not know, and for values of the options that a joint cannot take.
RobotJoints ChooseJoints(const Urdf& urdf, const std::optional<Srdf>& srdf, const RobotFileOptions& options);

//! Where a joint that is held stands unless something else is said.
double RestOf(const Urdf::Joint& joint);

//! How each joint moves, while those outside the c-space stand where the options put them, else where the
//! state does, else at rest.
std::vector<RobotJoints::Motion> PlaceJoints(const Urdf& urdf, const RobotJoints& joints,
                                             const std::map<std::string, double>& options,
                                             const std::map<std::string, double>& state = {});

}  // namespace kavo::formats

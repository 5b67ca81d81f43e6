#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/motion_bound_internal.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

class WorldView;

}  // namespace kavo

namespace kavo::internal {

class ObstacleSet;
class Snapshot;

//! The balls of a robot in several placements of it at once, one to a lane of wide vectors: what they touch,
//! in the world and among themselves.
//!
//! Balls that are near each other and rigidly attached to one part of the robot make a bundle, the bundles of
//! a part have a ball around all of them. What is far away costs a part, what is nearer a bundle. Where there
//! are many balls a bundle holds more of them, in twigs of a few: questions stay few, and of a bundle that
//! something is near to only those twigs are looked at.
//!
//! Lanes are a filter in single precision: each question is answered with "touches", "is clear" or "too close
//! to tell", and the first two are as certain as the exact functions: what a placement may be off is known,
//! and what rounding may cost here is bounded, with much to spare, by `kMargin` times the lengths that take
//! part. Who asks goes on exactly where it is too close to tell.
//!
//! Lanes may be configurations that have nothing to do with each other, or placements along a motion. Then
//! the question is about the intervals between neighbours: the balls are enlarged (see `math::MotionBound`)
//! so that what two neighbours leave free is free all the way between them.
//!
//! Holds the scratch memory of its queries: one thread at a time.
class KAVO_EXPORT BallModel {
 public:
  //! The share of lengths within which rounding may tip a decision. A distance computed from a placed centre
  //! has an error of at most 64 units of 2^-24 of the coordinates that take part.
  static constexpr float kMargin = 0x1p-16f;
  //! Lengths above this are not left to single precision: their squares must not overflow.
  static constexpr float kLargestLength = 1.0e6f;
  //! Lengths below this are not told from zero: their squares must not vanish.
  static constexpr float kLeastLength = 1.0e-15f;
  //! Intervals between the lanes.
  static constexpr std::uint32_t kNumIntervals = math::kNumLanes - 1;
  static constexpr std::uint32_t kAllIntervals = (1u << kNumIntervals) - 1u;

  //! Balls side by side.
  struct Twig {
    //! In the coordinates of the part, metres.
    std::vector<math::Sphere> balls;
    //! Encloses all of them, but for rounding.
    math::Sphere bound;
  };

  //! Balls of one part.
  struct Bundle {
    std::vector<Twig> twigs;
    //! Encloses all balls, but for rounding.
    math::Sphere bound;
    //! Of the centres, in the world.
    math::JointReaches reaches;
    //! How far from obstacles the balls have to stay, not negative; metres.
    double padding = 0.0;
  };

  struct Part {
    //! Where the part is in world coordinates; read whenever it is placed.
    const math::LaneTransforms* transform = nullptr;
    std::vector<Bundle> bundles;
    math::Sphere bound;
    math::JointReaches reaches;
    //! Of a part that never moves nothing is asked but whether others touch it.
    bool is_fixed = false;
  };

  //! Bundles (as numbered through all parts) that must not touch each other.
  struct BundlePair {
    std::size_t a = 0;
    std::size_t b = 0;
    //! Of the difference of centres, in a frame on the way between them.
    math::JointReaches reaches_a;
    math::JointReaches reaches_b;
  };

  //! All such pairs that one bundle has with those of another part.
  struct Row {
    std::size_t bundle = 0;
    //! As for bundles, of the centres of the balls around the bundle and around the other part.
    math::JointReaches reaches_a;
    math::JointReaches reaches_b;
    std::vector<BundlePair> pairs;
  };

  //! All such rows of two parts.
  struct PartPair {
    std::size_t a = 0;
    std::size_t b = 0;
    //! As for bundles, of the centres of the balls around the parts.
    math::JointReaches reaches_a;
    math::JointReaches reaches_b;
    //! Of any two centres of the two, and of balls around them.
    math::JointReaches all_reaches_a;
    math::JointReaches all_reaches_b;
    std::vector<Row> rows;
  };

  //! What is found out about configurations in the lanes.
  struct Contacts {
    //! Bit i stands for lane i. At first the lanes of interest; those that are found to touch are taken out.
    std::uint32_t wanted = 0;
    //! Whether lanes above one that touches are of no interest either.
    bool only_below_first = false;
    //! The lanes of which it is too close to tell. What it says of lanes that are not wanted means nothing.
    std::uint32_t unsure = 0;

    //! Takes over lanes that touch. False when none is wanted any more.
    bool note(std::uint32_t touching) {
      touching &= wanted;
      if (touching != 0) {
        wanted &= only_below_first ? (touching & (0u - touching)) - 1u : ~touching;
      }
      return wanted != 0;
    }
  };

  //! A bundle and something that it may come too near to.
  struct Question {
    enum class Kind : std::uint8_t { kHalfSpace, kSolid, kPair };
    Kind kind = Kind::kSolid;
    //! Index of the bundle; of the pair of parts for a pair.
    std::uint32_t subject = 0;
    //! Index in the snapshot; of the pair of bundles for a pair.
    std::uint32_t object = 0;
    //! The intervals of the last block in which it is open.
    std::uint32_t intervals = 0;
  };

  //! What is found out about a motion.
  enum class Verdict {
    //! No two neighbours leave anything open but what the questions say.
    kOpen,
    //! In some lane a ball touches: `contact` tells which.
    kContact,
    //! Single precision does not serve here.
    kUnknown,
  };

  BallModel(const std::vector<Part>& parts, const std::vector<PartPair>& pairs);

  //! What is of no account to the balls of a bundle, of the snapshot that is asked from now on.
  //! \param except Null for none; must outlive the queries.
  void setExcept(std::size_t bundle, const ObstacleSet* except);
  BallModel(BallModel&& other) noexcept;
  ~BallModel();

  //! Finds the contacts of configurations with what a view shows and of the balls with each other, until no
  //! lane is wanted any more.
  //! \param num_lanes 4 or `math::kNumLanes`: how many lanes of the parts are placed.
  void findContacts(const WorldView& view, std::size_t num_lanes, Contacts& contacts);

  //! Starts with another motion.
  //! \param rates, bends Of each joint, over the whole motion; see `math::AddMotion`; no bends (null) where it is straight.
  //!     Must stay as they are.
  //! \param clearance What is added to the radius of each ball.
  void startMotion(const float* rates, const float* bends, float clearance);

  //! Starts with another block of placements along the motion, all lanes of which are placed.
  //! \param spacing Of neighbours, as a share of the motion.
  void startBlock(float spacing);

  //! Asks everything about the block; what stays open is added to the questions.
  Verdict askAll(const WorldView& view, std::vector<Question>& questions);

  //! Asks one question about the block. Those intervals stay open that it has afterwards.
  Verdict ask(const WorldView& view, Question& question);

  //! Whether what a question is about touches in some lane, for certain. Asked of a part that single
  //! precision serves for.
  bool touches(const WorldView& view, const Question& question);

  //! What was found to touch last.
  const Question& contact() const { return contact_; }

  //! How much the balls of a question that was asked of this motion are enlarged at a spacing, at most
  //! (metres).
  float enlargement(const Question& question, float spacing) const;

  //! The bundles that a question is about, twice the same unless it is about two, as numbered through all
  //! parts.
  std::pair<std::size_t, std::size_t> bundlesOf(const Question& question) const;

  // What the functions for each set of wide vectors work on; not for others.
  struct Data;

 private:
  void startPlacement(std::size_t num_lanes);

  std::unique_ptr<Data> data_;
  Question contact_;
};

//! What the view shows at the moment: another one after an update that took over an edit.
KAVO_EXPORT const std::shared_ptr<const Snapshot>& SnapshotOf(const WorldView& view);

}  // namespace kavo::internal

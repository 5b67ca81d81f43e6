#pragma once

#include <Eigen/Core>
#include <algorithm>

#include "kavo/motion_planning/environment/change_watch_internal.h"
#include "kavo/motion_planning/environment/environment.h"

namespace kavo::planning::internal {

//! Says of the configurations of a walk, one after the other, whether they are valid, and asks the
//! environment about several of them at once. Should the environment change on the way, it is asked again.
//!
//! The environment must outlive it.
class LookAhead {
 public:
  explicit LookAhead(const Environment& environment)
      : environment_(&environment),
        change_watch_(environment),
        batch_(environment.CSpaceDimension(), environment.NumAtOnce()) {}

  //! Begins another walk.
  void Start() {
    count_ = 0;
    num_valid_ = 0;
    next_ = 0;
    size_ = std::min<Eigen::Index>(kFirstBatch, batch_.cols());
  }

  //! Whether `q` is valid. To be called for each configuration of the walk until one is not.
  //! \param advance `bool(Eigen::VectorXd&)`: takes a configuration on by one step of the walk, as the walk
  //!     itself does. False when the walk ends there.
  template <typename Advance>
  bool IsValid(const Eigen::VectorXd& q, const Advance& advance) {
    if (next_ == count_) {
      LookAt(q, advance);
      Ask();
    } else if (change_watch_.HasChanged()) {
      Ask();
    }
    return next_++ < num_valid_;
  }

  //! Takes `q`, which was just found to be valid, on by one step. False when the walk ends there.
  template <typename Advance>
  bool Next(Eigen::VectorXd& q, const Advance& advance) {
    if (next_ < count_) {
      q = batch_.col(next_);
      return true;
    }
    return !ends_ && advance(q);
  }

 private:
  // A walk may end at once: the first look is shorter.
  static constexpr Eigen::Index kFirstBatch = 4;

  template <typename Advance>
  void LookAt(const Eigen::VectorXd& q, const Advance& advance) {
    batch_.col(0) = q;
    count_ = 1;
    ends_ = false;
    if (size_ > 1) {
      ahead_ = q;
      while (count_ < size_ && !ends_) {
        ends_ = !advance(ahead_);
        if (!ends_) {
          batch_.col(count_++) = ahead_;
        }
      }
    }
    next_ = 0;
    size_ = batch_.cols();
  }

  // Asks about those that are still to come.
  void Ask() {
    change_watch_.HasChanged();
    num_valid_ = next_ + environment_->CountValid(batch_.middleCols(next_, count_ - next_));
  }

  const Environment* environment_;
  ChangeWatch change_watch_;
  // One configuration to a column.
  Eigen::MatrixXd batch_;
  Eigen::Index size_ = 1;
  // Of the last batch: how many there are, whether the walk ends behind them, how many are valid before one
  // is not, and which comes next.
  Eigen::Index count_ = 0;
  bool ends_ = false;
  Eigen::Index num_valid_ = 0;
  Eigen::Index next_ = 0;
  Eigen::VectorXd ahead_;
};

}  // namespace kavo::planning::internal

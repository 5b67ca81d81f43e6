#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/input_rules.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/situation.h"
#include "kavo/formats/joint_limits_file.h"
#include "kavo/formats/result_file.h"
#include "kavo/formats/trajectory_file.h"
#include "kavo/motion_planning/interface/time_path.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! The options that say which trajectory is to be made of a path.
class TrajectoryOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  //! The files that are read: what each is, and its name.
  std::vector<std::pair<std::string, std::string>> Files() const;

 private:
  friend class TrajectoryMaker;

  std::optional<std::string> file_;
  std::string form_;
  double period_ = 0.01;
  double deviation_ = 0.05;
  std::string limits_file_;
  // Numbers with commas between them: one for each coordinate, or one for all.
  std::string velocity_;
  std::string acceleration_;
  std::string jerk_;
  bool limits_jerk_ = false;
  std::optional<double> velocity_scaling_;
  std::optional<double> acceleration_scaling_;
};

//! A path in time, and what there is to say of it.
struct MadeTrajectory {
  //! In lines, for a reader.
  std::string text;
  //! For a file of results.
  formats::TrajectoryRecord record;
  //! Of the file of the trajectory.
  std::string contents;
  //! Whether the way with its blends was proven, or nobody asked for that.
  bool is_good = true;
};

//! Makes the trajectory that the options ask for, if they ask for one. Throws `UnusableInput` or
//! `formats::FileError` for what cannot be used.
class TrajectoryMaker {
 public:
  //! Opens what is written, and reads what is read, before any work.
  //! \param options Must outlive this object.
  //! \param inputs Files that are read, see `OutputFile`.
  TrajectoryMaker(const TrajectoryOptions& options,
                  const std::vector<std::pair<std::string, std::string>>& inputs);

  bool IsWanted() const { return file_.IsWanted(); }
  OutputFile& File() { return file_; }
  const OutputFile& File() const { return file_; }

  //! What the file of limits asks for that cannot be had.
  const std::vector<formats::Unhonoured>& Unhonoured() const { return limits_.unhonoured; }

  //! \param velocity_scaling, acceleration_scaling Of a request; options go before them, and they before the
  //!     file of limits.
  //! \param stops Waypoints, by index, to stop at.
  //! \param proves Whether the way with its blends is proven apart from what made it; until a signal comes.
  MadeTrajectory Make(const std::vector<Eigen::VectorXd>& path, const std::vector<std::size_t>& stops,
                      const Situation& situation, const std::optional<double>& velocity_scaling,
                      const std::optional<double>& acceleration_scaling, bool proves, Notes& notes) const;

 private:
  planning::MotionLimits Limits(const formats::LoadedRobot& robot,
                                const std::optional<double>& velocity_scaling,
                                const std::optional<double>& acceleration_scaling, Notes& notes) const;

  const TrajectoryOptions& options_;
  OutputFile file_;
  formats::TrajectoryForm form_ = formats::TrajectoryForm::kCsv;
  formats::JointLimitsFile limits_;
};

}  // namespace kavo::command

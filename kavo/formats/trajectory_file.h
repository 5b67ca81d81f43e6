#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::formats {

//! A motion of some joints in time, at samples of it. Seconds; radians, or metres for a joint that slides.
struct TrajectorySamples {
  //! Of the coordinates, in the order of each sample.
  std::vector<std::string> joint_names;
  //! Of each sample, in seconds from the start of the motion.
  std::vector<double> times;
  //! Of each sample, one value for each joint: radians or metres.
  std::vector<Eigen::VectorXd> positions;
  //! Radians or metres per second. Empty where the file says nothing of them; accelerations only come with
  //! velocities.
  std::vector<Eigen::VectorXd> velocities;
  //! Radians or metres per second squared; empty where the file says nothing of them.
  std::vector<Eigen::VectorXd> accelerations;
};

//! How samples are written.
enum class TrajectoryForm {
  //! A line of names, then a sample to a line: `time`, the positions under the names of their joints, then
  //! velocities as `<joint>/velocity` and accelerations as `<joint>/acceleration`.
  kCsv,
  //! {"joint_names": [..], "points": [{"time_from_start": 0.1, "positions": [..], "velocities": [..],
  //! "accelerations": [..]}, ..]}, times in seconds.
  kJson,
  //! The YAML of a joint-trajectory message: as above, but for times as {sec: 0, nanosec: 100000000}, to the
  //! nearest nanosecond.
  kYaml,
};

//! The form that the name of a file asks for: `.csv`, `.json`, `.yaml` or `.yml` at its end; none for others.
KAVO_EXPORT std::optional<TrajectoryForm> TrajectoryFormOf(const std::string& file);

//! Samples as text. But for the times of YAML, reading it gives the same bits. Lists of other lengths than
//! the struct asks for, values that are not finite and, for YAML, times that are negative or above 2^31
//! seconds are a fatal error.
//!
//! @code
//! kavo::formats::TrajectorySamples samples;
//! samples.joint_names = {"shoulder", "elbow"};
//! samples.times = {0.0, 0.5};
//! samples.positions = {Eigen::Vector2d(0.0, 0.1), Eigen::Vector2d(1.0, 0.2)};
//! const std::string text = kavo::formats::ToText(samples, kavo::formats::TrajectoryForm::kCsv);
//! assert(text == "time,shoulder,elbow\n0,0,0.1\n0.5,1,0.2\n");
//! assert(kavo::formats::ParseTrajectory(text, "motion.csv").positions == samples.positions);
//! @endcode
KAVO_EXPORT std::string ToText(const TrajectorySamples& samples, TrajectoryForm form);

//! Writes that text. Throws `FileError` if that fails.
KAVO_EXPORT void WriteTrajectory(const TrajectorySamples& samples, const std::string& file,
                                 TrajectoryForm form);

//! Reads samples in any of these forms, whatever the file is called. CSV begins with a line of names, in any
//! order, of which the first is `time`. A message may be below `joint_trajectory` or `trajectory`, and its
//! times may be a number of seconds, {sec, nanosec} or {secs, nsecs}; efforts, headers and other keys are
//! passed over. Times come as they are: whether they ascend is up to the caller.
//!
//! Throws `FileError` for a file that cannot be read or has none of these forms, for one without samples, and
//! for velocities or accelerations of some samples or some joints only.
KAVO_EXPORT TrajectorySamples ReadTrajectory(const std::string& file);

//! The same from the text of a file, with a name for its errors.
KAVO_EXPORT TrajectorySamples ParseTrajectory(const std::string& text, const std::string& file);

}  // namespace kavo::formats

#include "apps/kavo/trajectory_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "apps/kavo/command.h"
#include "apps/kavo/explain.h"
#include "apps/kavo/help.h"
#include "apps/kavo/interrupt.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/text.h"
#include "apps/kavo/trajectory_samples.h"
#include "kavo/motion_planning/trajectory/sample_interpolation.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

constexpr double kMostSamples = 1e6;
// Of those in a record.
constexpr double kMostSamplesDrawn = 1000.0;

std::string CheckNotNegative(const std::string& text) {
  return util::ParseNumber(text).value_or(-1.0) >= 0.0 ? "" : text + " is not a number of at least 0";
}

std::string CheckShare(const std::string& text) {
  const double share = util::ParseNumber(text).value_or(0.0);
  return share > 0.0 && share <= 1.0 ? "" : text + " is not a number above 0 and up to 1";
}

const std::vector<std::pair<std::string, formats::TrajectoryForm>>& Forms() {
  using Form = formats::TrajectoryForm;
  static const std::vector<std::pair<std::string, Form>> forms = {
      {"csv", Form::kCsv}, {"json", Form::kJson}, {"yaml", Form::kYaml}};
  return forms;
}

formats::TrajectoryForm FormOf(const std::string& file, const std::string& form) {
  for (const auto& [name, value] : Forms()) {
    if (name == form) {
      return value;
    }
  }
  const std::optional<formats::TrajectoryForm> by_name = formats::TrajectoryFormOf(file);
  if (!by_name) {
    throw UnusableInput("--trajectory " + file +
                        ": expected a name that ends in .csv, .json or .yaml, or --trajectory-format");
  }
  return *by_name;
}

// Limits of an option in place of those that are there.
void TakeOption(const std::string& option, const std::string& text, Eigen::VectorXd& limits) {
  if (text.empty()) {
    return;
  }
  const auto numbers = ParseNumbers(text);
  const auto size = static_cast<std::size_t>(limits.size());
  const bool is_good =
      numbers && (numbers->size() == 1 || numbers->size() == size) &&
      std::all_of(numbers->begin(), numbers->end(), [](double number) {
        return number >= planning::kLeastMotionLimit && number <= planning::kGreatestMotionLimit;
      });
  if (!is_good) {
    throw UnusableInput(option + " " + text + ": expected one number, or " + std::to_string(size) +
                        " with commas between them, from " + Number(planning::kLeastMotionLimit) + " to " +
                        Number(planning::kGreatestMotionLimit));
  }
  for (std::size_t i = 0; i < size; ++i) {
    limits[static_cast<Eigen::Index>(i)] = (*numbers)[numbers->size() == 1 ? 0 : i];
  }
}

// Says of which joints nothing is known.
void NoteUnknown(const std::string& what, const Eigen::VectorXd& limits,
                 const std::vector<std::string>& joint_names, Notes& notes) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < joint_names.size(); ++i) {
    if (std::isinf(limits[static_cast<Eigen::Index>(i)])) {
      names.push_back(joint_names[i]);
    }
  }
  if (!names.empty()) {
    notes.Say("no limit of " + what + " is known of " + JoinQuoted(names) +
              ": a default stands for it (see --joint-limits and --max-" + what + ")");
  }
}

std::string Count(std::uint64_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string CornersText(const formats::TrajectoryRecord& record) {
  std::string text = Count(record.num_blends, "corner") + " blended within " + Number(record.blend_deviation);
  if (record.num_tightened > 0) {
    text += " (" + std::to_string(record.num_tightened) + " more closely, since something is near)";
  }
  return text + ", " + Count(record.num_stops, "stop");
}

// Of a path that was proven with its corners.
void Prove(const planning::BlendedPath& path, const Situation& situation, MadeTrajectory& made) {
  std::vector<Eigen::MatrixXd> pieces;
  for (const planning::BlendedPath::Piece& piece : path.Pieces()) {
    pieces.push_back(piece.ControlPoints());
  }
  const planning::PathProof proof = planning::ProveCurves(
      *situation.robot->description, situation.world.view(), pieces, {}, [] { return Signal() != 0; });
  made.is_good = proof.IsFree();
  made.record.verdict = proof.IsFree() ? situation.scope.Verdict(true) : ToString(proof.verdict);
  made.text += (proof.IsFree() ? "; " : "; NOT proven free: ") + made.record.verdict;
  if (proof.bad) {
    made.text += " (" + Explain(proof.bad->fault, *situation.robot->description) + ")";
  }
}

}  // namespace

void TrajectoryOptions::AddOptions(CLI::App& app) {
  const std::string group = "Trajectory";
  CLI::Option* file =
      app.add_option(
             "--trajectory", file_,
             "Make a trajectory of the path, within limits of velocity and acceleration, and write "
             "samples of it: CSV, JSON, or the YAML of a joint-trajectory message; - is standard output")
          ->type_name("FILE")
          ->group(group);
  const auto add = [&](const char* name, auto& value, const char* text, const char* type) {
    return app.add_option(name, value, text)->type_name(type)->group(group)->needs(file);
  };
  std::vector<std::string> names;
  for (const auto& [name, form] : Forms()) {
    names.push_back(name);
  }
  add("--trajectory-format", form_,
      "How it is written: csv, json or yaml; as the file's name ends unless given", "FORM")
      ->check(CLI::IsMember(names).description(""));
  add("--period", period_, "Time between samples", "SECONDS")->check(CheckPositive)->capture_default_str();
  add("--blend", deviation_,
      "How far corners may be rounded, the largest over the joints (radians or metres), where that is proven "
      "free; 0 stops at each",
      "DEVIATION")
      ->check(CheckNotNegative)
      ->capture_default_str();
  add("--joint-limits", limits_file_,
      "Limits of velocity, acceleration and jerk (YAML), before those of the robot", "FILE");
  add("--max-velocity", velocity_, "Limits of velocity, one for all joints or one for each", "V[,V...]");
  add("--max-acceleration", acceleration_, "Limits of acceleration, likewise", "A[,A...]");
  CLI::Option* jerk = add("--max-jerk", jerk_, "Limits of jerk, likewise; implies --limit-jerk", "J[,J...]");
  jerk->each([this](const std::string&) { limits_jerk_ = true; });
  app.add_flag("--limit-jerk", limits_jerk_, "Keep limits of jerk too, with continuous acceleration")
      ->group(group)
      ->needs(file);
  add("--velocity-scaling", velocity_scaling_,
      "How much of the limits of velocity is used; goes before the request and the file of limits", "SHARE")
      ->check(CheckShare);
  add("--acceleration-scaling", acceleration_scaling_, "Likewise of acceleration", "SHARE")
      ->check(CheckShare);
}

std::vector<std::pair<std::string, std::string>> TrajectoryOptions::Files() const {
  return {{"joint limits", limits_file_}};
}

TrajectoryMaker::TrajectoryMaker(const TrajectoryOptions& options,
                                 const std::vector<std::pair<std::string, std::string>>& inputs)
    : options_(options), file_("--trajectory", options.file_, inputs) {
  if (options.file_) {
    form_ = FormOf(*options.file_, options.form_);
  }
  if (!options.limits_file_.empty()) {
    limits_ = formats::ReadJointLimits(options.limits_file_);
  }
}

planning::MotionLimits TrajectoryMaker::Limits(const formats::LoadedRobot& robot,
                                               const std::optional<double>& velocity_scaling,
                                               const std::optional<double>& acceleration_scaling,
                                               Notes& notes) const {
  planning::MotionLimits known = robot.motion_limits;
  if (!known.jerk) {
    known.jerk = Eigen::VectorXd::Constant(known.velocity.size(), std::numeric_limits<double>::infinity());
  }
  formats::TakeJointLimits(limits_, *robot.description, known);
  TakeOption("--max-velocity", options_.velocity_, known.velocity);
  TakeOption("--max-acceleration", options_.acceleration_, known.acceleration);
  TakeOption("--max-jerk", options_.jerk_, *known.jerk);
  const std::vector<std::string> names = JointNames(*robot.description);
  NoteUnknown("velocity", known.velocity, names, notes);
  NoteUnknown("acceleration", known.acceleration, names, notes);
  if (options_.limits_jerk_) {
    NoteUnknown("jerk", *known.jerk, names, notes);
  }
  planning::MotionLimits limits = planning::WithDefaults(known, *robot.description);
  const auto scale = [](const std::optional<double>& option, const std::optional<double>& request,
                        const std::optional<double>& file, Eigen::VectorXd& values) {
    const double share = option ? *option : request ? *request : file.value_or(1.0);
    values *= share;
    if (values.minCoeff() < planning::kLeastMotionLimit) {
      throw UnusableInput("a limit of " + Number(values.minCoeff()) + " is below the least, " +
                          Number(planning::kLeastMotionLimit));
    }
  };
  scale(options_.velocity_scaling_, velocity_scaling, limits_.velocity_scaling, limits.velocity);
  scale(options_.acceleration_scaling_, acceleration_scaling, limits_.acceleration_scaling,
        limits.acceleration);
  if (!options_.limits_jerk_) {
    limits.jerk.reset();
  }
  return limits;
}

MadeTrajectory TrajectoryMaker::Make(const std::vector<Eigen::VectorXd>& path,
                                     const std::vector<std::size_t>& stops, const Situation& situation,
                                     const std::optional<double>& velocity_scaling,
                                     const std::optional<double>& acceleration_scaling, bool proves,
                                     Notes& notes) const {
  const planning::MotionLimits limits =
      Limits(*situation.robot, velocity_scaling, acceleration_scaling, notes);
  const TimedPath timed = TimePath(path, *situation.robot->description, situation.world.view(), limits,
                                   {options_.deviation_, stops, options_.limits_jerk_});
  const planning::Trajectory& trajectory = timed.trajectory;
  if (trajectory.Duration() / options_.period_ > kMostSamples) {
    throw UnusableInput("--period " + Number(options_.period_) + ": gives more than a million samples of " +
                        Time(trajectory.Duration()));
  }
  const std::vector<planning::Trajectory::State> states = trajectory.Samples(options_.period_);
  MadeTrajectory made;
  formats::TrajectoryRecord& record = made.record;
  record.duration = trajectory.Duration();
  record.period = options_.period_;
  record.num_samples = states.size();
  record.waypoint_times = trajectory.WaypointTimes();
  record.blend_deviation = options_.deviation_;
  record.num_blends = timed.path.NumBlends();
  record.num_tightened = timed.path.NumTightened();
  record.num_stops = timed.path.NumStops();
  using planning::SampleInterpolation;
  record.cubic_deviation = InterpolationDeviation(trajectory, states, SampleInterpolation::kCubic);
  record.quintic_deviation = InterpolationDeviation(trajectory, states, SampleInterpolation::kQuintic);
  record.limits = limits;
  const formats::TrajectorySamples samples = SamplesOf(states, JointNames(*situation.robot->description));
  made.contents = ToText(samples, form_);
  // At even times: those at both ends count.
  const double drawn_period = trajectory.Duration() / (kMostSamplesDrawn - 1.0);
  record.samples = drawn_period > options_.period_
                       ? SamplesOf(trajectory.Samples(drawn_period), samples.joint_names)
                       : samples;
  made.text = "trajectory: " + Number(record.duration, 4) + " s, " + Count(record.num_samples, "sample") +
              "; " + CornersText(record);
  if (proves && !timed.path.Pieces().empty()) {
    Prove(timed.path, situation, made);
  }
  made.text += "\n  between samples a controller leaves it by no more than " +
               Number(record.cubic_deviation, 2) + " (cubic) or " + Number(record.quintic_deviation, 2) +
               " (quintic) in any joint\n";
  return made;
}

}  // namespace kavo::command

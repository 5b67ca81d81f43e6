#include "apps/kavo/query_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <utility>

#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/text.h"

namespace kavo::command {

namespace {

constexpr char kAxes[] = "xyz";

// The parts of "kind=value"; empty for a text of another form.
std::pair<std::string, std::string> KindAndValue(const std::string& text) {
  const std::size_t sign = text.find('=');
  return sign == std::string::npos ? std::pair<std::string, std::string>()
                                   : std::pair(text.substr(0, sign), text.substr(sign + 1));
}

}  // namespace

// Makes goals of texts, in one situation.
class QueryOptions::Reader {
 public:
  Reader(const QueryOptions& options, Situations& situations, Situation& situation)
      : options_(options), situations_(situations), situation_(situation) {
    if (!options.pose_frame_.empty()) {
      const std::string what = "--pose-frame";
      const auto pose = situations.FindFrame(options.pose_frame_, what, situation);
      if (!pose) {
        throw UnusableInput(what + " " + options.pose_frame_ + ": expected a frame of the robot" +
                            Suggestion(options.pose_frame_, Frames()));
      }
      base_from_frame_ = *pose;
    }
    const std::vector<std::string> frames = Frames();
    if (!options.frame_.empty() && std::find(frames.begin(), frames.end(), options.frame_) == frames.end()) {
      throw UnusableInput("--frame " + options.frame_ + ": expected a frame of the robot" +
                          Suggestion(options.frame_, frames));
    }
  }

  Eigen::VectorXd Configuration(const std::string& option, const std::string& text) {
    const formats::LoadedRobot& robot = *situation_.robot;
    Eigen::VectorXd goal = ParseConfiguration(option, text, robot);
    situations_.Rules().PutOnLimits(*robot.description, "the goal", goal, situations_.GetNotes());
    return goal;
  }

  PoseGoal Position(const std::string& option, const std::string& text) const {
    const auto numbers = ParseNumbers(text);
    if (!numbers || numbers->size() != 3) {
      throw UnusableInput(option + " " + text + ": expected X,Y,Z in metres, " + Reference());
    }
    const Eigen::Vector3d position((*numbers)[0], (*numbers)[1], (*numbers)[2]);
    PoseGoal goal = PoseGoal::Position(options_.frame_, base_from_frame_ * position);
    goal.position_tolerance = options_.position_tolerance_;
    return goal;
  }

  PoseGoal Pose(const std::string& option, const std::string& text) const {
    const auto numbers = ParseNumbers(text);
    if (!numbers || numbers->size() != 7) {
      throw UnusableInput(option + " " + text + ": expected X,Y,Z,QX,QY,QZ,QW, a position in metres and a " +
                          "quaternion, " + Reference());
    }
    const std::vector<double>& n = *numbers;
    const Pose3 pose(Eigen::Quaterniond(n[6], n[3], n[4], n[5]), {n[0], n[1], n[2]});
    if (!pose.isFinite()) {
      throw UnusableInput(option + " " + text + ": expected a quaternion that is not zero");
    }
    PoseGoal goal;
    goal.frame = options_.frame_;
    goal.pose = base_from_frame_ * pose;
    goal.position_tolerance = options_.position_tolerance_;
    goal.orientation_tolerance = options_.orientation_tolerance_;
    for (const std::string& axis : options_.free_axes_) {
      goal.free_rotations[std::string(kAxes).find(axis)] = true;
    }
    return goal;
  }

  // A line to a position keeps the orientation.
  Stage Line(const std::string& option, const std::string& text) const {
    const auto numbers = ParseNumbers(text);
    const bool is_position = numbers && numbers->size() == 3;
    return {{is_position ? Position(option, text) : Pose(option, text)}, options_.line_options_};
  }

  Stage Next(const std::string& text) {
    const auto [kind, value] = KindAndValue(text);
    const std::string option = "--then " + kind;
    if (kind == "goal") {
      return {{Configuration(option, value)}};
    }
    if (kind == "target") {
      return {{Position(option, value)}};
    }
    if (kind == "pose") {
      return {{Pose(option, value)}};
    }
    if (kind == "line") {
      return Line(option, value);
    }
    throw UnusableInput("--then " + text + ": expected goal=Q, target=X,Y,Z, pose=X,Y,Z,QX,QY,QZ,QW or " +
                        "line= with either of the last two");
  }

 private:
  std::vector<std::string> Frames() const {
    return situation_.robot->description->kinematics()->frameNames();
  }

  std::string Reference() const {
    return "in the frame " + (options_.pose_frame_.empty() ? "of the robot's base"
                                                           : "'" + Printable(options_.pose_frame_) + "'");
  }

  const QueryOptions& options_;
  Situations& situations_;
  Situation& situation_;
  Pose3 base_from_frame_;
};

void QueryOptions::AddOptions(CLI::App& app, CLI::Option* request) {
  const std::string group = "Query";
  app.add_option("--start", start_,
                 "Configuration to start from: numbers with commas between them, one for each joint, or a "
                 "name ('default', or a named configuration of the SRDF)")
      ->type_name("Q|NAME")
      ->group(group)
      ->excludes(request);
  const auto add_goal = [&](const char* name, std::vector<std::string>& values, const char* type,
                            const char* text) {
    return app.add_option(name, values, text)
        ->type_name(type)
        ->group(group)
        ->allow_extra_args(false)
        ->excludes(request);
  };
  CLI::Option* goal = add_goal("--goal", goals_, "Q|NAME",
                               "Configuration to go to, likewise. This and the next two may be repeated and "
                               "mixed: the path ends in any one of them");
  CLI::Option* target = add_goal("--target", targets_, "X,Y,Z",
                                 "Position to take a frame to, metres in the frame of the robot's base");
  CLI::Option* pose =
      add_goal("--pose", poses_, "X,Y,Z,QX,QY,QZ,QW",
               "Pose to take a frame to: a position in metres and a quaternion, of any length but zero, in "
               "the frame of the robot's base");
  app.add_option("--line", line_,
                 "Pose or position to take a frame to on a straight line, along which it turns evenly (a "
                 "position alone: keeps its orientation)")
      ->type_name("X,Y,Z[,QX,QY,QZ,QW]")
      ->group(group)
      ->excludes(request)
      ->excludes(goal)
      ->excludes(target)
      ->excludes(pose);
  add_goal("--then", then_, "KIND=VALUE",
           "Where to go on to from there, as one path: goal=Q, target=X,Y,Z, pose=X,Y,Z,QX,QY,QZ,QW or "
           "line=, as the options of these names; may be repeated");
  app.add_option("--frame", frame_, "The frame that is taken there; the tip of the robot unless given")
      ->type_name("FRAME")
      ->group(group)
      ->excludes(request);
  app.add_option("--pose-frame", pose_frame_,
                 "The frame that poses and positions are in, instead of the robot's base; one that moves "
                 "counts where it is at the start")
      ->type_name("FRAME")
      ->group(group)
      ->excludes(request);
  const auto add_tolerance = [&](const char* name, auto& value, const char* type, const char* text) {
    return app.add_option(name, value, text)
        ->type_name(type)
        ->group(group)
        ->excludes(request)
        ->check(CheckPositive);
  };
  add_tolerance("--position-tolerance", position_tolerance_, "M",
                "How far from a pose's position the frame may end; 0.0001 unless set. It gets within 1e-05 "
                "where it can");
  add_tolerance("--orientation-tolerance", orientation_tolerance_, "RAD",
                "The largest angle by which it may be turned from a pose's orientation; 0.001 unless set. It "
                "gets within 0.0001 where it can");
  app.add_option("--free-axis", free_axes_,
                 "An axis of the pose's own frame about which the frame may be turned as it likes: x, y or "
                 "z; may be repeated, three times leaves the orientation free")
      ->type_name("AXIS")
      ->group(group)
      ->allow_extra_args(false)
      ->excludes(request)
      ->check(CLI::IsMember({"x", "y", "z"}));
  add_tolerance("--line-step", line_options_.step, "M",
                "The farthest from one waypoint of a line to the next")
      ->capture_default_str();
  add_tolerance("--line-deviation", line_options_.max_deviation, "M",
                "How far the frame may be off the line between waypoints")
      ->capture_default_str();
}

bool QueryOptions::HasConfigurationsOnly() const {
  return targets_.empty() && poses_.empty() && line_.empty() && then_.empty();
}

Eigen::VectorXd QueryOptions::Start(const formats::LoadedRobot& robot) const {
  return ParseConfiguration("--start", start_, robot);
}

void QueryOptions::CheckUse() const {
  const auto goes_on = [&](const std::string& kind) {
    return std::any_of(then_.begin(), then_.end(),
                       [&](const std::string& text) { return KindAndValue(text).first == kind; });
  };
  const bool has_line = !line_.empty() || goes_on("line");
  const bool has_pose = !poses_.empty() || goes_on("pose");
  const bool has_position = has_pose || !targets_.empty() || goes_on("target");
  const planning::LineOptions defaults;
  const struct {
    const char* option;
    bool is_given;
    bool is_of_use;
    const char* for_what;
  } options[] = {
      {"--frame", !frame_.empty(), has_position || has_line, "a target, a pose or a line"},
      {"--pose-frame", !pose_frame_.empty(), has_position || has_line, "a target, a pose or a line"},
      {"--position-tolerance", position_tolerance_.has_value(), has_position, "a target or a pose"},
      {"--orientation-tolerance", orientation_tolerance_.has_value(), has_pose, "a pose"},
      {"--free-axis", !free_axes_.empty(), has_pose, "a pose"},
      {"--line-step", line_options_.step != defaults.step, has_line, "a line"},
      {"--line-deviation", line_options_.max_deviation != defaults.max_deviation, has_line, "a line"},
  };
  for (const auto& option : options) {
    if (option.is_given && !option.is_of_use) {
      throw UnusableInput(std::string(option.option) + ": is for " + option.for_what +
                          ", and the query has none");
    }
  }
}

std::vector<Stage> QueryOptions::Stages(Situations& situations, Situation& situation) const {
  CheckUse();
  Reader reader(*this, situations, situation);
  std::vector<Stage> stages;
  if (!line_.empty()) {
    stages.push_back(reader.Line("--line", line_));
  } else {
    Stage stage;
    for (const std::string& goal : goals_) {
      stage.goals.emplace_back(reader.Configuration("--goal", goal));
    }
    for (const std::string& target : targets_) {
      stage.goals.emplace_back(reader.Position("--target", target));
    }
    for (const std::string& pose : poses_) {
      stage.goals.emplace_back(reader.Pose("--pose", pose));
    }
    stages.push_back(std::move(stage));
  }
  for (const std::string& text : then_) {
    stages.push_back(reader.Next(text));
  }
  return stages;
}

}  // namespace kavo::command

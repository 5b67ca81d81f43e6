#include "kavo/motion_planning/interface/motion_planner.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>
#include <yaml-cpp/yaml.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "apps/kavo/attempt_record.h"
#include "bindings/python/control.h"
#include "bindings/python/goals.h"
#include "bindings/python/plan_page.h"
#include "bindings/python/records.h"
#include "kavo/formats/file_error.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/world/world.h"

namespace kavo::python {

namespace {

using planning::MotionPlannerConfig;
using planning::Parameter;
using planning::ParameterValue;
using Names = std::vector<std::string>;
using Timeout = std::optional<double>;

const Parameter& ParameterOf(const std::string& name) {
  for (const Parameter& parameter : planning::Parameters()) {
    if (name == parameter.name) {
      return parameter;
    }
  }
  throw py::key_error("no setting has the name '" + name + "'");
}

// Numbers in place of truth values would go unnoticed, and the other way round.
void RefuseBool(const py::handle& value) {
  if (py::isinstance<py::bool_>(value)) {
    throw py::cast_error();
  }
}

bool ToBool(const py::handle& value) {
  py::detail::make_caster<bool> caster;
  if (!caster.load(value, /*convert=*/false)) {
    throw py::cast_error();
  }
  return py::detail::cast_op<bool>(caster);
}

const char* TypeName(Parameter::Type type) {
  switch (type) {
    case Parameter::Type::kInt:
      return "an int";
    case Parameter::Type::kDouble:
      return "a float";
    case Parameter::Type::kVector3:
    case Parameter::Type::kVector:
      return "an array of floats";
    case Parameter::Type::kBool:
      return "a bool";
    case Parameter::Type::kString:
      return "a str";
    case Parameter::Type::kLimits:
      return "an array of lower and upper limits (N, 2)";
  }
  return "";
}

// A value of another type is a py::cast_error.
ParameterValue ValueOf(Parameter::Type type, const py::handle& value) {
  switch (type) {
    case Parameter::Type::kInt:
      RefuseBool(value);
      return py::cast<std::int64_t>(value);
    case Parameter::Type::kDouble:
      RefuseBool(value);
      return py::cast<double>(value);
    case Parameter::Type::kVector3:
    case Parameter::Type::kVector:
      return py::cast<std::vector<double>>(value);
    case Parameter::Type::kBool:
      return ToBool(value);
    case Parameter::Type::kString:
      return py::cast<std::string>(value);
    case Parameter::Type::kLimits:
      return py::cast<std::vector<std::array<double, 2>>>(value);
  }
  throw py::cast_error();
}

ParameterValue ToValue(const Parameter& parameter, const py::handle& value) {
  try {
    return ValueOf(parameter.type, value);
  } catch (const py::cast_error&) {
    throw py::type_error(std::string("the setting '") + parameter.name + "' takes " +
                         TypeName(parameter.type));
  }
}

bool SetIn(MotionPlanner& planner, const Parameter& parameter, const ParameterValue& value) {
  const std::string name = parameter.name;
  switch (parameter.type) {
    case Parameter::Type::kInt:
      return planner.setParam(name, static_cast<int>(std::get<std::int64_t>(value)));
    case Parameter::Type::kDouble:
      return planner.setParam(name, std::get<double>(value));
    case Parameter::Type::kVector3: {
      const auto& vector = std::get<std::vector<double>>(value);
      return planner.setParam(name, Eigen::Vector3d(vector[0], vector[1], vector[2]));
    }
    case Parameter::Type::kVector:
      return planner.setParam(name, std::get<std::vector<double>>(value));
    case Parameter::Type::kBool:
      return planner.setParam(name, std::get<bool>(value));
    case Parameter::Type::kString:
      return planner.setParam(name, std::get<std::string>(value));
    case Parameter::Type::kLimits: {
      std::vector<MotionPlanner::Limit> limits;
      for (const auto& [lower, upper] : std::get<std::vector<std::array<double, 2>>>(value)) {
        limits.push_back({lower, upper});
      }
      return planner.setParam(name, limits);
    }
  }
  return false;
}

// Calls `take(name, value)` for each setting; {"bi_rrt_params": {"range": 1}} stands for
// "bi_rrt_params/range".
template <typename Take>
void ForEachSetting(const py::dict& settings, const std::string& prefix, const Take& take) {
  for (const auto& [key, value] : settings) {
    const std::string name = prefix + py::cast<std::string>(key);
    if (py::isinstance<py::dict>(value)) {
      ForEachSetting(py::reinterpret_borrow<py::dict>(value), name + "/", take);
    } else {
      take(name, value);
    }
  }
}

MotionPlannerConfig ReadConfig(const std::string& file) {
  try {
    return MotionPlannerConfig::ReadUnchecked(YAML::LoadFile(file));
  } catch (const YAML::Exception& error) {
    throw formats::FileError(file, error.mark.is_null() ? 0 : error.mark.line + 1, error.msg);
  }
}

// A planner with all that its queries need. The view that it plans in is its own.
class Planner {
 public:
  Planner(const Robot& robot, const std::optional<World>& world,
          const std::optional<std::filesystem::path>& config_file, const py::dict& settings)
      : own_(robot),
        robot_(robot),
        world_(world.value_or(World())),
        config_(config_file ? ReadConfig(config_file->string()) : MotionPlannerConfig(robot.description)) {
    if (const std::optional<std::string> fault = planning::FindSettingFault(config_, *robot.description)) {
      throw py::value_error(*fault);
    }
    Change(settings, [](const Parameter& /*parameter*/, const ParameterValue& /*value*/) {});
    planner_ = CreateMotionPlanner(config_, robot.description, world_.view());
    TakeWorld();
    planner_->setStopCondition(control_.Condition());
  }

  void SetParam(const std::string& name, const py::object& value) {
    py::dict settings;
    settings[py::str(name)] = value;
    Set(settings);
  }

  void Set(const py::dict& settings) {
    const Turn turn(is_in_use_);
    Change(settings, [&](const Parameter& parameter, const ParameterValue& value) {
      if (!SetIn(*planner_, parameter, value)) {
        throw py::value_error(std::string("the planner refuses this value of '") + parameter.name + "'");
      }
    });
  }

  py::dict Settings() const {
    py::dict settings;
    MotionPlannerConfig same = config_;
    for (const Parameter& parameter : planning::Parameters()) {
      const ParameterValue value = parameter.value(config_);
      // What belongs to something that is not enabled is refused, and is no setting then.
      if (!planning::SetParameter(parameter.name, value, *robot_.description, same)) {
        settings[parameter.name] = py::cast(value);
      }
    }
    return settings;
  }

  py::object PlanToConfiguration(const Eigen::VectorXd& start, const Eigen::VectorXd& target,
                                 bool interpolate, const Timeout& timeout, const py::object& stop) {
    return Ask(start, {target}, timeout, stop,
               [&] { return planner_->planToCSpaceTarget(start, target, interpolate); });
  }

  py::object PlanToPosition(const Eigen::VectorXd& start, const Eigen::Vector3d& position, bool interpolate,
                            const Timeout& timeout, const py::object& stop) {
    return Ask(start, {PoseGoal::Position({}, position)}, timeout, stop,
               [&] { return planner_->planToTaskSpaceTarget(start, position, interpolate); });
  }

  py::object PlanToPose(const Eigen::VectorXd& start, const py::object& goal, bool interpolate,
                        const Timeout& timeout, const py::object& stop) {
    const PoseGoal pose_goal = ToPoseGoal(goal);
    return Ask(start, {pose_goal}, timeout, stop,
               [&] { return planner_->planToPose(start, pose_goal, interpolate); });
  }

  py::object PlanToGoals(const Eigen::VectorXd& start, const py::iterable& goals, bool interpolate,
                         const Timeout& timeout, const py::object& stop) {
    const std::vector<Goal> all = ToGoals(goals);
    return Ask(start, all, timeout, stop, [&] { return planner_->planToGoals(start, all, interpolate); });
  }

  py::object PlanLine(const Eigen::VectorXd& start, const py::object& goal, const py::object& options,
                      const Timeout& timeout, const py::object& stop) {
    const PoseGoal pose_goal = ToPoseGoal(goal);
    const planning::LineOptions line = ToLineOptions(options, control_.Condition());
    const Turn turn(is_in_use_);
    return ToRecord(Run(control_, timeout, stop, [&] { return planner_->planLine(start, pose_goal, line); }),
                    robot_.NumCoordinates());
  }

  py::object PlanStages(const Eigen::VectorXd& start, const py::iterable& stages, const Timeout& timeout,
                        const py::object& stop) {
    std::vector<Stage> all = ToStages(stages, control_.Condition());
    const Turn turn(is_in_use_);
    searches_.clear();
    StagedResults results = Run(control_, timeout, stop, [&] { return planner_->planStages(start, all); });
    py::object record = ToRecord(results, robot_.NumCoordinates());
    Account account{Current(), start, std::move(all), {}, std::move(results.parts), {}, searches_};
    account.results.path_found = results.path_found;
    if (results.path_found) {
      account.results.path = std::move(results.path);
    }
    account.report = command::TotalOf(account.parts);
    return WithAccount(std::move(record), std::move(account));
  }

  // With the GIL, so that nobody edits the world between what the planner takes of it and what is kept.
  void UpdateWorld() {
    const Turn turn(is_in_use_);
    planner_->updateWorldView();
    TakeWorld();
  }

  void SetRobot(const Robot& robot) {
    const Turn turn(is_in_use_);
    planner_->setRobot(robot.description);
    own_ = robot;
    TakeRobot(robot);
  }

  void Attach(const std::string& name, const std::string& frame,
              const std::vector<std::pair<ObstacleShape, Pose3>>& parts, const Pose3& pose,
              const Names& touch_frames, const Names& allowed_obstacles,
              const std::optional<double>& cover_tolerance) {
    const Turn turn(is_in_use_);
    AttachedObject object{name, frame, pose, {}, touch_frames, allowed_obstacles, cover_tolerance};
    for (const auto& [shape, place] : parts) {
      object.parts.push_back({shape, place});
    }
    {
      const py::gil_scoped_release released;
      planner_->attach(object);
    }
    TakeHeld(std::move(object));
  }

  void AttachFrom(const std::string& obstacle, const std::string& frame, const Eigen::VectorXd& q,
                  const Names& touch_frames, const Names& allowed_obstacles) {
    const Turn turn(is_in_use_);
    AttachedObject object = [&] {
      const py::gil_scoped_release released;
      return AttachFromWorld(*planner_, world_, obstacle, frame, q, touch_frames, allowed_obstacles);
    }();
    TakeHeld(std::move(object));
    TakeWorld();
  }

  void Detach(const std::string& name) {
    const Turn turn(is_in_use_);
    planner_->detach(name);
    TakeDetached(name);
  }

  std::vector<std::uint64_t> DetachInto(const std::string& name, const Eigen::VectorXd& q) {
    const Turn turn(is_in_use_);
    std::vector<std::uint64_t> ids;
    for (const ObstacleHandle obstacle : DetachIntoWorld(*planner_, world_, name, q)) {
      ids.push_back(obstacle.id());
    }
    TakeDetached(name);
    TakeWorld();
    return ids;
  }

  QueryReport Report() {
    const Turn turn(is_in_use_);
    return planner_->queryReport();
  }

  void KeepSearches(bool keep) {
    const Turn turn(is_in_use_);
    keeps_searches_ = keep;
    planner_->setSearchObserver(keep ? [this](const SearchRecord& search) { searches_.push_back(search); }
                                     : SearchObserver());
    if (!keep) {
      searches_.clear();
    }
  }
  bool KeepsSearches() const { return keeps_searches_; }

  py::object LastSearch() {
    const Turn turn(is_in_use_);
    return searches_.empty() ? py::none() : ToRecord(searches_.back(), robot_.NumCoordinates());
  }

  // Not the one in here, which changes.
  Robot robot() const { return robot_; }
  const World& world() const { return world_; }

 private:
  // Takes settings over, and tells of each that was taken.
  template <typename Tell>
  void Change(const py::dict& settings, const Tell& tell) {
    ForEachSetting(settings, "", [&](const std::string& name, const py::handle& value) {
      const Parameter& parameter = ParameterOf(name);
      const ParameterValue setting = ToValue(parameter, value);
      MotionPlannerConfig changed = config_;
      if (const auto fault = planning::SetParameter(name, setting, *robot_.description, changed)) {
        throw py::value_error(*fault);
      }
      tell(parameter, setting);
      config_ = std::move(changed);
      current_.reset();
    });
  }

  void TakeDetached(const std::string& name) {
    for (const AttachedBody& body : AttachedBodies(*own_.description)) {
      if (body.name == name) {
        own_ = MakeVariant(own_, WithoutAttached(*own_.description, name), "without_attached",
                           py::make_tuple(name));
      }
    }
    TakeHeld();
  }

  // The robot that the planner has gone over to.
  void TakeRobot(Robot robot) {
    robot_ = std::move(robot);
    current_.reset();
  }
  // That robot after taking up or putting down.
  void TakeHeld(std::optional<AttachedObject> taken_up = std::nullopt) {
    Robot robot = MakeAttached(own_, *planner_->robot());
    robot.held = StillHeld(*robot.description, robot_.held);
    if (taken_up) {
      robot.held.push_back(*std::move(taken_up));
    }
    TakeRobot(std::move(robot));
  }

  // The world that the planner has just gone over to.
  void TakeWorld() {
    seen_ = world_.copy();
    current_.reset();
  }

  // What queries are answered with now.
  const std::shared_ptr<const Surroundings>& Current() {
    if (!current_) {
      current_ = std::make_shared<const Surroundings>(Surroundings{robot_, seen_, config_});
    }
    return current_;
  }

  template <typename Query>
  py::object Ask(const Eigen::VectorXd& start, std::vector<Goal> goals, const Timeout& timeout,
                 const py::object& stop, const Query& query) {
    const Turn turn(is_in_use_);
    searches_.clear();
    MotionPlanner::Results results = Run(control_, timeout, stop, query);
    QueryReport report = planner_->queryReport();
    const Eigen::Index dof = robot_.NumCoordinates();
    py::object record = MakeRecord("Plan", results.path_found, ToArray(results.path, dof),
                                   ToArray(results.interpolated_path, dof), results.goal, report);
    std::vector<Stage> stages(1);
    stages.front().goals = std::move(goals);
    return WithAccount(
        std::move(record),
        {Current(), start, std::move(stages), std::move(results), {}, std::move(report), searches_});
  }

  // As it was given, but for what it does not hold any more: so a robot's recipe does not grow by what was
  // taken up and put down.
  Robot own_;
  // The one that the planner has gone over to.
  Robot robot_;
  World world_;
  MotionPlannerConfig config_;
  // Before the planner, which asks it.
  Control control_;
  // Of the last query.
  std::vector<SearchRecord> searches_;
  bool keeps_searches_ = false;
  // As the planner sees it.
  World seen_;
  // Null after a change.
  std::shared_ptr<const Surroundings> current_;
  std::unique_ptr<MotionPlanner> planner_;
  std::atomic<bool> is_in_use_ = false;
};

std::unique_ptr<Planner> MakePlanner(const Robot& robot, const std::optional<World>& world,
                                     const std::optional<std::filesystem::path>& config_file,
                                     const py::kwargs& settings) {
  return std::make_unique<Planner>(robot, world, config_file, settings);
}

py::object Check(const Robot& robot, const World& world, const Numbers& path, double step_size,
                 const Timeout& timeout, const py::object& stop) {
  const Configurations configurations = ToConfigurations(path);
  Control control;
  return ToRecord(Run(control, timeout, stop, [&] {
    return planning::CheckPath(*robot.description, world.view(), configurations, step_size,
                               control.Condition());
  }));
}

py::object Prove(const Robot& robot, const World& world, const Numbers& path, double least_clearance,
                 double tolerance, std::uint64_t max_num_bounds, const Timeout& timeout,
                 const py::object& stop) {
  const Configurations configurations = ToConfigurations(path);
  Control control;
  return ToRecord(Run(control, timeout, stop, [&] {
    return planning::ProvePath(*robot.description, world.view(), configurations,
                               {least_clearance, tolerance, max_num_bounds}, control.Condition());
  }));
}

void DefineQueries(py::class_<Planner>& planner) {
  const auto interpolate = py::arg("interpolate") = false;
  const auto timeout = py::arg("timeout") = py::none();
  const auto stop = py::arg("stop") = py::none();
  planner
      .def("plan_to_configuration", &Planner::PlanToConfiguration, py::arg("start"), py::arg("target"),
           interpolate, py::kw_only(), timeout, stop,
           "A path to a configuration. Start and target are (dof,). Returns a `Plan`.")
      .def("plan_to_position", &Planner::PlanToPosition, py::arg("start"), py::arg("position"), interpolate,
           py::kw_only(), timeout, stop,
           "A path to a position of the task-space frame: (3,), metres, relative to the base. Returns a "
           "`Plan`.")
      .def("plan_to_pose", &Planner::PlanToPose, py::arg("start"), py::arg("goal"), interpolate,
           py::kw_only(), timeout, stop,
           "A path to a `PoseGoal`, or to a `Pose3` of the task-space frame. Returns a `Plan`.")
      .def("plan_to_goals", &Planner::PlanToGoals, py::arg("start"), py::arg("goals"), interpolate,
           py::kw_only(), timeout, stop,
           R"(A path to any one of several goals: configurations, `ConfigurationGoal`s and `PoseGoal`s.

Every motion of it is proven free. Returns a `Plan`; its `goal` is the index of the one that was reached.)")
      .def("plan_line", &Planner::PlanLine, py::arg("start"), py::arg("goal"),
           py::arg("options") = py::none(), py::kw_only(), timeout, stop,
           "A path on which a tool goes straight to a pose. Options are `LineOptions`. Returns a "
           "`LineMotion`.")
      .def("plan_stages", &Planner::PlanStages, py::arg("start"), py::arg("stages"), py::kw_only(), timeout,
           stop, "A path of several `Stage`s, one after another. Returns a `StagedPlan`.");
}

}  // namespace

void DefinePlanner(py::module_& module) {
  py::class_<Planner> planner(module, "Planner",
                              R"(Plans collision-free paths of one robot among the obstacles of a world.

Equal settings, seeds and worlds give equal answers, bit for bit. Settings are given by keyword, as `set` takes them.
While a query runs the GIL is released; a second thread that uses the same planner meanwhile gets a `RuntimeError`.
Each query ends early by `timeout` (seconds), by `stop`, a function without arguments that is asked every 10 ms and says
whether to stop, and by Ctrl-C. What a function or a signal's handler raises leaves the query.

After a `FatalError` of its own, such as for a configuration of another length, make another planner.)");
  planner
      .def(py::init(&MakePlanner), py::arg("robot"), py::arg("world") = py::none(),
           py::arg("config_file") = py::none())
      .def("set_param", &Planner::SetParam, py::arg("name"), py::arg("value"), R"(Changes one setting.

Raises KeyError for a name that does not exist, TypeError for a value of another type than the name's, ValueError for one
out of range; nothing is changed then.)")
      .def(
          "set", [](Planner& self, const py::kwargs& settings) { self.Set(settings); },
          R"(Changes settings given by keyword, one after another.

What has a slash in its name is given in a dict: `set(step_size=0.05, bi_rrt_params={"range": 0.5})`.)")
      .def_property_readonly("settings", &Planner::Settings,
                             "All settings by name, to make a planner with the same ones: `Planner(robot, "
                             "world, **settings)`.")
      .def("update_world", &Planner::UpdateWorld, "Takes the world as it is now.")
      .def_property_readonly("robot", &Planner::robot, "With what it holds now.")
      .def_property_readonly("world", &Planner::world, "The one that it was made with, or an empty one.")
      .def("set_robot", &Planner::SetRobot, py::arg("robot"),
           "Goes over to another form of the robot, such as one that holds something.")
      .def("attach", &Planner::Attach, py::arg("name"), py::arg("frame"), py::arg("parts"),
           py::arg("pose") = Pose3(), py::arg("touch_frames") = Names(),
           py::arg("allowed_obstacles") = Names(), py::arg("cover_tolerance") = py::none(),
           R"(Has the robot hold an object from the next query on.

Args:
    name: Of no frame of the robot and of no obstacle.
    frame: That it is fixed to.
    parts: Shapes and their poses in the object; they are covered by spheres.
    pose: Of the object in the frame.
    touch_frames: Frames that it may touch, beside those that it does not move against.
    allowed_obstacles: Names of obstacles that it may touch.
    cover_tolerance: How far the spheres may reach beyond it, metres; by its size unless given.)")
      .def("attach_from_world", &Planner::AttachFrom, py::arg("obstacle"), py::arg("frame"), py::arg("q"),
           py::arg("touch_frames") = Names(), py::arg("allowed_obstacles") = Names(),
           "Takes the obstacles of a name out of the world and attaches them where they are when the robot "
           "is at `q`.")
      .def("detach", &Planner::Detach, py::arg("name"), "Takes from the robot what it holds.")
      .def("detach_into_world", &Planner::DetachInto, py::arg("name"), py::arg("q"),
           "Puts what the robot holds into the world, where it is when the robot is at `q`. Returns ids.")
      .def_property_readonly("report", &Planner::Report, "Of the last query: `QueryReport`.")
      .def_property("keeps_searches", &Planner::KeepsSearches, &Planner::KeepSearches,
                    "Whether `last_search` is filled; answers stay the same.")
      .def_property_readonly("last_search", &Planner::LastSearch,
                             "The trees of the last query: `Search`, or None.");
  DefineQueries(planner);

  module.def("check_path", &Check, py::arg("robot"), py::arg("world"), py::arg("path"),
             py::arg("step_size") = 0.01, py::kw_only(), py::arg("timeout") = py::none(),
             py::arg("stop") = py::none(),
             R"(Looks at a path anew, without anything that planned it.

Args:
    path: (N, dof).
    step_size: The farthest of two points that are looked at, in c-space.
    timeout: Seconds.
    stop: As for `Planner`.

Returns:
    A `PathCheck`.)");
  const planning::PathProofOptions options;
  module.def("prove_path", &Prove, py::arg("robot"), py::arg("world"), py::arg("path"), py::kw_only(),
             py::arg("least_clearance") = options.least_clearance, py::arg("tolerance") = options.tolerance,
             py::arg("max_num_bounds") = options.max_num_bounds, py::arg("timeout") = py::none(),
             py::arg("stop") = py::none(),
             R"(Proves that a path is free everywhere, not only at samples, or says where it is not.

Args:
    path: (N, dof).
    least_clearance: A gap smaller than this is not told from contact. Metres.
    tolerance: How much smaller than stated the smallest clearances may be. Metres.
    max_num_bounds: Work for one segment before it is given up.
    timeout: Seconds.
    stop: As for `Planner`.

Returns:
    A `PathProof`.)");
}

}  // namespace kavo::python

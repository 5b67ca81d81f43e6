#include "bindings/python/plan_page.h"

#include <utility>
#include <variant>

#include "apps/kavo/attempt_record.h"
#include "apps/kavo/close_look.h"
#include "apps/kavo/explain_attempt.h"
#include "apps/kavo/page.h"
#include "apps/kavo/page_template.h"
#include "apps/kavo/path_checking.h"
#include "apps/kavo/plan_attempt.h"
#include "apps/kavo/situation.h"
#include "bindings/python/control.h"
#include "kavo/formats/result_file.h"
#include "kavo/kinematics/interface/robot_variants.h"

namespace kavo::python {

namespace {

// The robot as from files, also where it is not.
formats::LoadedRobot ToLoaded(const Robot& robot) {
  formats::LoadedRobot loaded;
  if (robot.files) {
    loaded = *robot.files;
  } else {
    py::tuple recipe = robot.recipe;
    while (py::cast<std::string>(recipe[0]) == "variant") {
      recipe = py::cast<const Robot&>(recipe[1]).recipe;
    }
    loaded.name = py::cast<std::string>(recipe[0]);
    loaded.motion_limits = loaded.name == "franka" ? planning::FrankaMotionLimits()
                                                   : planning::DefaultMotionLimits(*robot.description);
    loaded.tip_frame = LastOwnFrame(*robot.description);
  }
  loaded.description = robot.description;
  return loaded;
}

command::Situation ToSituation(const Account& account) {
  command::Situation situation;
  const Robot& robot = account.surroundings->robot;
  situation.robot = std::make_shared<const formats::LoadedRobot>(ToLoaded(robot));
  situation.held = robot.held;
  situation.world = account.surroundings->world;
  situation.start = account.start;
  situation.scope.TakeRobot(*situation.robot);
  return situation;
}

// What came of goals; of one configuration, and of the planner of positions, nobody tells.
std::vector<StagedResults::Part> PartsOf(const Account& account) {
  const std::vector<Goal>& goals = account.stages.front().goals;
  if (!account.parts.empty() || account.report.planner == "jt_rrt" ||
      (goals.size() == 1 && std::holds_alternative<Eigen::VectorXd>(goals.front()))) {
    return account.parts;
  }
  StagedResults::Part part;
  if (account.results.path_found) {
    part.last = account.results.path.size() - 1;
    part.goal = account.results.goal.value_or(0);
  }
  part.report = account.report;
  return {part};
}

command::Attempt ToAttempt(const Account& account) {
  const planning::MotionPlannerConfig& config = account.surroundings->config;
  command::Attempt attempt{
      config, {account.start, account.stages}, account.results, PartsOf(account), account.report, {}, {}};
  for (Stage& stage : attempt.query.stages) {
    for (Goal& goal : stage.goals) {
      auto* const pose = std::get_if<PoseGoal>(&goal);
      if (pose != nullptr && pose->frame.empty()) {
        pose->frame = config.task_space_frame_name;
      }
    }
  }
  for (const SearchRecord& search : account.searches) {
    attempt.searches.push_back(command::Thinned(search, command::kNumNodesShown));
  }
  return attempt;
}

// As the command writes it.
std::string ToJson(const Account& account) {
  const command::Situation situation = ToSituation(account);
  command::Attempt attempt = ToAttempt(account);
  Control control;
  return Run(control, std::nullopt, py::none(), [&] {
    std::string explanation;
    if (attempt.results.path_found) {
      attempt.check = command::CheckAlong(attempt.results.path, situation, std::nullopt, control.Condition());
      explanation = command::ExplainPath(attempt, situation, "", false);
    } else {
      explanation = command::ExplainNoPath(attempt, situation, true);
    }
    formats::PlanRecord record =
        command::RecordOf(attempt, situation, std::move(explanation), std::nullopt, control.Condition());
    record.version = KAVO_VERSION;
    return formats::ToJson(record);
  });
}

std::string ToHtml(const Account& account) {
  command::RequirePage("to_html");
  const std::string json = ToJson(account);
  const py::gil_scoped_release released;
  return command::MakePage(json, "to_html");
}

std::string ToCsv(const Account& account) {
  return formats::ToCsv(command::JointNames(*account.surroundings->robot.description), account.results.path);
}

}  // namespace

py::object WithAccount(py::object record, Account account) {
  for (Stage& stage : account.stages) {
    if (stage.line) {
      // It asks the planner, which may be gone by then.
      stage.line->stop_condition = nullptr;
    }
    for (Goal& goal : stage.goals) {
      auto* const pose = std::get_if<PoseGoal>(&goal);
      if (pose != nullptr && pose->accepts) {
        // A function that holds the answer would keep both alive for ever: that there was one is enough.
        pose->accepts = [](const Eigen::VectorXd& /*q*/) { return true; };
      }
    }
  }
  record.attr("_account") = py::cast(std::move(account));
  return record;
}

void DefinePlanPage(py::module_& module) {
  py::class_<Account>(module, "_Account", "All that there is to say of a query and its answer.")
      .def("to_html", &ToHtml)
      .def("to_json", &ToJson)
      .def("to_csv", &ToCsv);
  module.def(
      "_has_page", [] { return command::FindPageTemplate() != nullptr; },
      "Whether the module was built with the page of plans.");
}

}  // namespace kavo::python

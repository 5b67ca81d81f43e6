#include "apps/kavo/input_rules.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/util/log_message.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

using Kind = formats::Unhonoured::Kind;

namespace {

std::vector<std::string> KindNames() {
  std::vector<std::string> names;
  for (const Kind kind : formats::UnhonouredKinds()) {
    names.emplace_back(ToString(kind));
  }
  return names;
}

}  // namespace

void Notes::Say(const std::string& text) {
  if (said_.insert(text).second) {
    KAVO_LOG(LogLevel::kWarning) << text;
  }
}

void InputRules::AddOptions(CLI::App& app) {
  const std::string group = "Input";
  app.add_option_function<std::vector<std::string>>(
         "--ignore",
         [this](const std::vector<std::string>& names) {
           const std::vector<std::string> all = KindNames();
           for (const std::string& name : names) {
             const auto index = std::find(all.begin(), all.end(), name) - all.begin();
             ignored_.insert(formats::UnhonouredKinds()[static_cast<std::size_t>(index)]);
           }
         },
         "Go on without what a file asks for and kavo cannot do yet, which is refused otherwise: " +
             Join(KindNames(), ", ") + "; may be repeated")
      ->type_name("WHAT")
      ->group(group)
      ->allow_extra_args(false)
      ->check(CLI::IsMember(KindNames()).description(""));
  app.add_flag(
         "--allow-uncovered", allows_uncovered_,
         "Take a robot of which some links have collision geometry that no spheres stand for (a mesh that "
         "is missing, or all with --no-cover); it is not checked")
      ->group(group);
  app.add_option(
         "--limit-tolerance", limit_tolerance_,
         "Put a start, goal or waypoint that is beyond a limit by no more than this on it; 0 refuses it")
      ->type_name("DISTANCE")
      ->group(group)
      ->check([](const std::string& text) {
        const auto number = util::ParseNumber(text);
        return number && *number >= 0.0 ? std::string() : text + " is not a number of at least 0";
      })
      ->capture_default_str();
}

void InputRules::Admit(const std::vector<formats::Unhonoured>& unhonoured, Scope& scope) const {
  std::vector<std::string> refused;
  std::set<Kind> kinds;
  for (const formats::Unhonoured& what : unhonoured) {
    if (IsIgnored(what.kind)) {
      scope.ignored.insert(what.kind);
    } else {
      refused.push_back(ToText(what));
      kinds.insert(what.kind);
    }
  }
  if (refused.empty()) {
    return;
  }
  constexpr std::size_t kMaxShown = 5;
  std::string text;
  for (std::size_t i = 0; i < std::min(refused.size(), kMaxShown); ++i) {
    text += refused[i] + "\n  ";
  }
  if (refused.size() > kMaxShown) {
    text += "and " + std::to_string(refused.size() - kMaxShown) + " more\n  ";
  }
  std::string options;
  for (const Kind kind : kinds) {
    options += std::string(" --ignore ") + ToString(kind);
  }
  throw UnusableInput(text + "cannot be honoured; to go on without:" + options);
}

void InputRules::Admit(const formats::LoadedRobot& robot, Scope& scope) const {
  scope.TakeRobot(robot);
  if (robot.uncovered_links.empty() || allows_uncovered_) {
    return;
  }
  std::string text;
  for (const formats::LoadedRobot::UncoveredLink& link : robot.uncovered_links) {
    text += (text.empty() ? "'" : ", '") + link.name + "' (" + link.kind + ")";
  }
  throw UnusableInput("collision geometry of " + std::to_string(robot.uncovered_links.size()) +
                      (robot.uncovered_links.size() == 1 ? " link" : " links") +
                      " is not covered by spheres: " + Printable(text) +
                      "; leave --no-cover out, or give --spheres FILE; or "
                      "--allow-uncovered, and they are not checked");
}

void InputRules::PutOnLimits(const RobotDescription& robot, const std::string& what, Eigen::VectorXd& q,
                             Notes& notes) const {
  const std::vector<kinematics::JointLimits> limits = ExtractJointLimits(&robot);
  for (std::size_t i = 0; i < limits.size(); ++i) {
    double& value = q[static_cast<Eigen::Index>(i)];
    const double nearest = std::clamp(value, limits[i].min, limits[i].max);
    if (value != nearest && std::fabs(value - nearest) <= limit_tolerance_) {
      value = nearest;
      notes.Say(what + " is beyond the limit " + Number(nearest) + " of joint '" +
                Printable(robot.cSpaceCoordName(i)) + "' by no more than " + Number(limit_tolerance_) +
                " (--limit-tolerance) and is put on it");
    }
  }
}

}  // namespace kavo::command

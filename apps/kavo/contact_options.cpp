#include "apps/kavo/contact_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <utility>
#include <variant>

#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

constexpr char kAttach[] = "--attach";
constexpr char kAllow[] = "--allow";
constexpr char kPadding[] = "--padding";

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<ObstacleHandle> Named(const World& world, const std::string& name) {
  std::vector<ObstacleHandle> handles = world.obstacles();
  handles.erase(std::remove_if(handles.begin(), handles.end(),
                               [&](ObstacleHandle obstacle) { return world.name(obstacle) != name; }),
                handles.end());
  return handles;
}

// Names may hold colons themselves: the first way to divide the text so that both are known.
std::optional<std::pair<std::string, std::string>> DividePair(const std::string& text,
                                                              const std::vector<std::string>& frames,
                                                              const World& world) {
  for (std::size_t colon = text.find(':'); colon != std::string::npos; colon = text.find(':', colon + 1)) {
    std::pair<std::string, std::string> pair(text.substr(0, colon), text.substr(colon + 1));
    if (!Contains(frames, pair.first)) {
      std::swap(pair.first, pair.second);
    }
    if (Contains(frames, pair.first) &&
        (Contains(frames, pair.second) || !Named(world, pair.second).empty())) {
      return pair;
    }
  }
  return std::nullopt;
}

}  // namespace

void ContactOptions::AddOptions(CLI::App& app) {
  const std::string group = "Contacts";
  app.add_option(kAttach, attached_,
                 "What the robot holds: a shape, as for --obstacle, at a pose in one of its frames; may be "
                 "repeated. It counts as a link")
      ->type_name("SHAPE@FRAME[,X,Y,Z[,QX,QY,QZ,QW]]")
      ->group(group)
      ->allow_extra_args(false);
  app.add_option(
         kAllow, allowed_,
         "Let two touch each other: a link (or what it holds) and an obstacle or another link; may be "
         "repeated")
      ->type_name("LINK:NAME")
      ->group(group)
      ->allow_extra_args(false);
  app.add_option(kPadding, paddings_,
                 "How far all links, or one of them, have to stay away from obstacles, or all links from one "
                 "obstacle; may be repeated")
      ->type_name("[NAME=]METRES")
      ->group(group)
      ->allow_extra_args(false);
}

std::vector<std::pair<std::string, std::string>> ContactOptions::Files() const {
  std::vector<std::pair<std::string, std::string>> files;
  for (const std::string& text : attached_) {
    files.emplace_back("attached", FileOfShape(ParsePlacedShape(kAttach, text, true).shape));
  }
  return files;
}

std::shared_ptr<RobotDescription> ContactOptions::Attach(std::shared_ptr<RobotDescription> robot,
                                                         const ShapeFileOptions& shapes,
                                                         const std::set<std::string>& taken,
                                                         std::vector<AttachedObject>& held) const {
  for (const std::string& text : attached_) {
    const PlacedShapeText placed = ParsePlacedShape(kAttach, text, true);
    const std::vector<std::string> frames = robot->kinematics()->frameNames();
    if (!Contains(frames, placed.frame)) {
      throw UnusableInput(std::string(kAttach) + " " + text + ": the robot has no frame '" +
                          Printable(placed.frame) + "'" + Suggestion(placed.frame, frames));
    }
    NamedShape named = ReadShape(kAttach, placed.shape, shapes);
    AttachedObject object;
    object.name = named.name;
    for (std::size_t number = 2; taken.count(object.name) != 0 || Contains(frames, object.name); ++number) {
      object.name = named.name + "_" + std::to_string(number);
    }
    object.frame = placed.frame;
    object.pose = placed.pose;
    object.parts.push_back({std::move(named.shape), Pose3()});
    robot = WithAttached(*robot, CoverObject(object));
    held.push_back(std::move(object));
  }
  return robot;
}

void ContactOptions::Pad(ContactRules& rules, const std::vector<std::string>& frames, World& world) const {
  for (const std::string& text : paddings_) {
    const std::size_t sign = text.rfind('=');
    const std::optional<double> metres =
        util::ParseNumber(sign == std::string::npos ? text : text.substr(sign + 1));
    if (!metres || !(*metres >= 0.0)) {
      throw UnusableInput(std::string(kPadding) + " " + text +
                          ": expected [NAME=]METRES with a number of at least 0");
    }
    if (sign == std::string::npos) {
      for (const std::string& frame : frames) {
        // What is said of one link goes before what is said of all.
        rules.paddings.emplace(frame, *metres);
      }
      continue;
    }
    const std::string name = text.substr(0, sign);
    const std::vector<ObstacleHandle> obstacles = Named(world, name);
    if (Contains(frames, name)) {
      rules.paddings[name] = *metres;
    } else if (obstacles.empty()) {
      throw UnusableInput(std::string(kPadding) + " " + text + ": there is no link or obstacle '" +
                          Printable(name) + "'" + Suggestion(name, frames));
    }
    for (const ObstacleHandle obstacle : obstacles) {
      world.setPadding(obstacle, *metres);
    }
  }
}

std::shared_ptr<RobotDescription> ContactOptions::Apply(std::shared_ptr<RobotDescription> robot,
                                                        World& world) const {
  if (allowed_.empty() && paddings_.empty()) {
    return robot;
  }
  const std::vector<std::string> frames = robot->kinematics()->frameNames();
  ContactRules rules = ContactRulesOf(*robot);
  Pad(rules, frames, world);
  std::vector<std::pair<std::string, std::string>> pairs =
      dynamic_cast<const RobotDescriptionInternal&>(*robot).collision().pairs;
  for (const std::string& text : allowed_) {
    const auto allowed = DividePair(text, frames, world);
    if (!allowed) {
      throw UnusableInput(std::string(kAllow) + " " + text +
                          ": expected LINK:NAME with a link of the robot, or something that it holds, and an "
                          "obstacle or another link");
    }
    if (Contains(frames, allowed->second)) {
      const auto is_allowed = [&](const auto& pair) {
        return std::minmax(pair.first, pair.second) == std::minmax(allowed->first, allowed->second);
      };
      pairs.erase(std::remove_if(pairs.begin(), pairs.end(), is_allowed), pairs.end());
    }
    rules.allowed_obstacles[allowed->first].push_back(allowed->second);
  }
  return WithContactRules(*WithCollisionPairs(*robot, pairs), rules);
}

}  // namespace kavo::command

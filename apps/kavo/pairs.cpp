// kavo pairs: which links of a robot need no looking at for contact with each other.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/builtin_robots.h"
#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/link_shapes.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/text.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/srdf.h"
#include "kavo/formats/srdf_writer.h"
#include "kavo/kinematics/interface/frame_pairs.h"
#include "kavo/kinematics/interface/robot_description_internal.h"

namespace kavo::command {

namespace {

struct PairsOptions {
  std::string robot;
  std::string srdf;
  LinkShapeOptions link_shapes;
  int num_samples = FramePairOptions().num_samples;
  bool disable_unseen = false;
  std::optional<std::string> output;
};

std::string CountText(const FramePair& pair) {
  return std::to_string(pair.num_touching) + " of " + std::to_string(pair.num_samples) +
         " random configurations";
}

// Why a pair is disabled; none if it has to be looked at.
std::optional<std::string> Reason(const FramePair& pair, bool disable_unseen) {
  switch (pair.kind) {
    case FramePair::Kind::kRigid:
      return "Rigid";
    case FramePair::Kind::kAdjacent:
      return "Adjacent";
    case FramePair::Kind::kAlways:
      return "Always (" + CountText(pair) + ")";
    case FramePair::Kind::kNever:
      return "Never";
    case FramePair::Kind::kNotSeen:
      return disable_unseen ? std::optional("Not seen (" + CountText(pair) + ")") : std::nullopt;
    case FramePair::Kind::kSometimes:
      return std::nullopt;
  }
  return std::nullopt;
}

// For a reader.
std::string Finding(const FramePair& pair) {
  switch (pair.kind) {
    case FramePair::Kind::kRigid:
      return "never move against each other";
    case FramePair::Kind::kAdjacent:
      return "joined by one moving joint";
    case FramePair::Kind::kAlways:
      return "touch in " + CountText(pair);
    case FramePair::Kind::kNever:
      return "cannot touch: proven";
    case FramePair::Kind::kNotSeen:
      return "touch in " + CountText(pair) + ", not proven";
    case FramePair::Kind::kSometimes:
      return pair.num_touching > 0 ? "touch in " + CountText(pair) : "touch in a rare configuration";
  }
  return {};
}

// Pairs that somebody has disabled by hand stay.
bool IsOfUser(const formats::Srdf::DisabledPair& pair) {
  std::string reason = pair.reason;
  std::transform(reason.begin(), reason.end(), reason.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return reason == "user";
}

formats::LoadedRobot Load(const PairsOptions& options) {
  if (IsBuiltin(options.robot)) {
    if (!options.srdf.empty() || options.link_shapes.AreGiven()) {
      throw UnusableInput("the built-in robot '" + options.robot + "' takes no further robot options");
    }
    return LoadBuiltin(options.robot, false);
  }
  formats::RobotFileOptions robot;
  robot.srdf_file = options.srdf;
  options.link_shapes.Apply(robot);
  return formats::LoadRobot(options.robot, robot);
}

std::string SrdfText(const PairsOptions& options, const formats::LoadedRobot& robot,
                     const std::vector<formats::Srdf::DisabledPair>& pairs) {
  std::map<std::string, std::vector<math::Sphere>> spheres;
  if (options.link_shapes.GivesSpheres()) {
    const auto& description = dynamic_cast<const RobotDescriptionInternal&>(*robot.description);
    for (const std::string& frame : description.collision().frames) {
      spheres[frame] = description.collision().spheresOf(frame);
    }
  }
  std::optional<std::string> base;
  if (!options.srdf.empty()) {
    std::ifstream stream(options.srdf);
    base = std::string(std::istreambuf_iterator<char>(stream), {});
  }
  return formats::ToSrdf(robot.name, pairs, spheres, base, options.srdf);
}

int Pairs(const PairsOptions& options) {
  std::vector<std::pair<std::string, std::string>> inputs = options.link_shapes.Files();
  inputs.emplace_back("robot", options.robot);
  // The SRDF that is read may be the one that is written.
  OutputFile output("--output", options.output, inputs);
  const formats::LoadedRobot robot = Load(options);
  FramePairOptions pair_options;
  pair_options.num_samples = options.num_samples;
  const std::vector<FramePair> pairs = ClassifyFramePairs(*robot.description, pair_options);

  std::vector<formats::Srdf::DisabledPair> disabled;
  std::set<std::pair<std::string, std::string>> of_user;
  if (!options.srdf.empty()) {
    for (const formats::Srdf::DisabledPair& pair : formats::ReadSrdf(options.srdf).disabled_pairs) {
      if (IsOfUser(pair)) {
        disabled.push_back(pair);
        of_user.insert(std::minmax(pair.link1, pair.link2));
      }
    }
  }
  std::vector<std::vector<std::string>> rows = {{"links", "", "found", ""}};
  std::size_t num_checked = 0;
  for (const FramePair& pair : pairs) {
    const bool is_of_user = of_user.count(std::minmax(pair.frames[0], pair.frames[1])) != 0;
    const std::optional<std::string> reason = Reason(pair, options.disable_unseen);
    if (reason && !is_of_user) {
      disabled.push_back({pair.frames[0], pair.frames[1], *reason});
    }
    num_checked += reason || is_of_user ? 0 : 1;
    rows.push_back({pair.frames[0], pair.frames[1], Finding(pair),
                    is_of_user ? "disabled by the user"
                    : reason   ? "disabled"
                               : "looked at"});
  }
  const std::string summary = std::to_string(pairs.size()) +
                              " pairs of links with spheres: " + std::to_string(pairs.size() - num_checked) +
                              " disabled, " + std::to_string(num_checked) + " looked at for contact\n";
  if (output.IsStandardOutput()) {
    std::cout << SrdfText(options, robot, disabled);
    return kDone;
  }
  std::cout << Table(rows) << summary;
  if (output.IsFile()) {
    output.Write(SrdfText(options, robot, disabled));
  }
  return kDone;
}

}  // namespace

void AddPairsCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<PairsOptions>();
  CLI::App* pairs =
      app.add_subcommand("pairs", "Work out which links of a robot cannot or always touch, for its SRDF");
  pairs
      ->add_option("-r,--robot,robot", options->robot,
                   "A URDF file, or the built-in 'franka' or 'three_link'")
      ->type_name("ROBOT")
      ->group("Robot")
      ->required();
  pairs
      ->add_option(
          "--srdf", options->srdf,
          "SRDF file to begin from: all in it stays but the pairs, of which only those with the reason "
          "'User' stay")
      ->type_name("FILE")
      ->group("Robot");
  options->link_shapes.AddOptions(*pairs);
  pairs->add_option("--samples", options->num_samples, "Random configurations to look at")
      ->type_name("N")
      ->group("Pairs")
      ->check(CLI::Range(1, 100000000))
      ->capture_default_str();
  pairs
      ->add_flag("--sampled", options->disable_unseen,
                 "Disable pairs too that touched in no random configuration, although they may in others")
      ->group("Pairs");
  pairs
      ->add_option(
          "-o,--output", options->output,
          "Write an SRDF with the disabled pairs, and with the spheres of --spheres or --cover; - is "
          "standard output")
      ->type_name("FILE")
      ->group("Output");
  pairs->footer(
      "All joints of the robot move within their limits. Disabled are links that do not move against each\n"
      "other, links joined by one moving joint, links that touched in every random configuration, and\n"
      "links that cannot touch in any configuration, which is proven by bounds and not by samples.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo pairs examples/own_robot/arm.urdf --cover 0.03\n"
      "  kavo pairs examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --spheres examples/own_robot/spheres.yaml -o arm_with_pairs.srdf");
  pairs->callback([options, &run] { run = [options] { return Pairs(*options); }; });
}

}  // namespace kavo::command

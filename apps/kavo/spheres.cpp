// kavo spheres: covers the collision geometry of a robot's links by spheres.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/link_shapes.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/scope.h"
#include "apps/kavo/text.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/spheres_writer.h"
#include "kavo/formats/srdf.h"
#include "kavo/formats/srdf_writer.h"
#include "kavo/kinematics/interface/robot_description_internal.h"

namespace kavo::command {

namespace {

struct SpheresOptions {
  std::string robot;
  std::string srdf;
  PackageOptions packages;
  std::optional<double> tolerance;
  std::optional<std::size_t> max_spheres;
  std::optional<std::string> output;
};

bool IsSrdf(const std::string& file) {
  const std::string ending = ".srdf";
  return file.size() > ending.size() && file.compare(file.size() - ending.size(), ending.size(), ending) == 0;
}

std::string OutputText(const SpheresOptions& options, const formats::LoadedRobot& robot) {
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(*robot.description);
  std::map<std::string, std::vector<math::Sphere>> spheres;
  for (const formats::LoadedRobot::LinkShape& shape : robot.link_shapes) {
    spheres[shape.link] = description.collision().spheresOf(shape.link);
  }
  if (!IsSrdf(*options.output)) {
    return formats::ToSpheresYaml(spheres);
  }
  if (options.srdf.empty()) {
    return formats::ToSrdf(robot.name, {}, spheres);
  }
  std::ifstream stream(options.srdf);
  return formats::ToSrdf(robot.name, formats::ReadSrdf(options.srdf).disabled_pairs, spheres,
                         std::string(std::istreambuf_iterator<char>(stream), {}), options.srdf);
}

std::string Summary(const formats::LoadedRobot& robot) {
  std::size_t num_spheres = 0;
  double bulge = 0.0;
  double seconds = 0.0;
  for (const formats::LoadedRobot::LinkShape& shape : robot.link_shapes) {
    num_spheres += shape.num_spheres;
    bulge = std::max(bulge, shape.bulge);
    seconds += shape.seconds;
  }
  std::string text = std::to_string(num_spheres) + " spheres for " +
                     std::to_string(robot.link_shapes.size()) +
                     (robot.link_shapes.size() == 1 ? " link" : " links");
  if (const std::optional<CompleteCover> cover = FindCompleteCover(robot)) {
    text += ": they hold every point of " + cover->Text() + " and bulge up to " + Distance(bulge) + "; " +
            Time(seconds);
  }
  return text + "\n";
}

int Spheres(const SpheresOptions& options) {
  // The SRDF that is read may be the one that is written.
  OutputFile output("--output", options.output, {{"robot", options.robot}});
  formats::RobotFileOptions robot_options;
  robot_options.srdf_file = options.srdf;
  robot_options.cover_tolerance = options.tolerance;
  robot_options.max_cover_spheres = options.max_spheres;
  robot_options.packages = options.packages.Folders();
  robot_options.cover_cache = CoverCacheFolder();
  const formats::LoadedRobot robot = formats::LoadRobot(options.robot, robot_options);
  if (output.IsStandardOutput()) {
    std::cout << OutputText(options, robot);
    return kDone;
  }
  std::cout << LinkShapeTable(robot, true) << Summary(robot);
  if (output.IsFile()) {
    output.Write(OutputText(options, robot));
  }
  return kDone;
}

}  // namespace

void AddSpheresCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<SpheresOptions>();
  CLI::App* spheres = app.add_subcommand(
      "spheres", "Cover the collision geometry of a robot by spheres, and write them to a file");
  const std::string robot_group = "Robot";
  spheres->add_option("-r,--robot,robot", options->robot, "A URDF file")
      ->type_name("FILE")
      ->group(robot_group)
      ->required();
  spheres
      ->add_option("--srdf", options->srdf,
                   "SRDF file of the robot: links that it has spheres for keep them, and a new SRDF has all "
                   "that is in it")
      ->type_name("FILE")
      ->group(robot_group);
  options->packages.AddOptions(*spheres);
  const std::string cover_group = "Cover";
  spheres
      ->add_option("--tolerance", options->tolerance,
                   "How far spheres may reach beyond the geometry (metres); unless given, that follows from "
                   "the size of each link")
      ->type_name("METRES")
      ->check(CheckPositive)
      ->group(cover_group);
  spheres
      ->add_option("--max", options->max_spheres,
                   "No more spheres than this for a link; they reach as far beyond it as that takes")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000))
      ->group(cover_group);
  spheres
      ->add_option(
          "-o,--output", options->output,
          "Write the spheres of all links: YAML for --spheres, or an SRDF if the name ends in .srdf; "
          "- is standard output")
      ->type_name("FILE")
      ->group("Output");
  spheres->footer(
      "Every point of a link's meshes, boxes, cylinders and spheres lies in one of its spheres, and so does\n"
      "the inside of what is closed: a path that is proven for these spheres is proven for the geometry.\n"
      "Without such a file the other commands cover the links themselves, and keep the covers in\n"
      "$XDG_CACHE_HOME/kavo or ~/.cache/kavo, which may be deleted at any time.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo spheres examples/own_robot/arm.urdf\n"
      "  kavo spheres examples/own_robot/arm.urdf --tolerance 0.01 -o spheres.yaml\n"
      "  kavo spheres examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf -o "
      "arm_with_spheres.srdf");
  spheres->callback([options, &run] { run = [options] { return Spheres(*options); }; });
}

}  // namespace kavo::command

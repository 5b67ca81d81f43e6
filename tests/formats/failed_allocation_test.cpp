// What holds after memory ran out, at every single allocation of a load.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "kavo/formats/file_error.h"
#include "kavo/formats/joint_limits_file.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/formats/octree_file.h"
#include "kavo/formats/point_cloud_file.h"
#include "kavo/formats/request.h"
#include "kavo/formats/result_file.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/srdf.h"
#include "kavo/formats/trajectory_file.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/world/world.h"
#include "tests/fuzz/use_robot.h"
#include "tests/support/allocations.h"
#include "tests/support/files.h"
#include "tests/support/log_capture.h"

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libassimp\nleak:libtinyxml.so\n"; }

namespace kavo::formats {
namespace {

// The files that the readers are also fed with by their fuzz targets.
const std::filesystem::path kFiles = std::filesystem::path(KAVO_SOURCE_DIR) / "tests/fuzz/corpus";

struct Reader {
  const char* folder;
  std::function<void(const std::string& text, const std::string& file)> read;
};

void PlaceScene(const Scene& scene) {
  World world;
  AddToWorld(scene, world);
}

std::vector<Reader> Readers() {
  using Text = const std::string&;
  const std::shared_ptr<RobotDescription> arm = LoadThreeLinkArmRobotDescription();
  return {
      {"joint_limits", [](Text text, Text file) { ParseJointLimits(text, file); }},
      // Behind a letter that tells the fuzz target its form.
      {"mesh", [](Text text, Text file) { ParseMesh(text.substr(1), file); }},
      {"octree", [](Text text, Text file) { ParseOctree(text, file); }},
      {"path", [](Text text, Text file) { ParsePath(text, file); }},
      {"planner_file",
       [arm](Text, Text file) {
         try {
           CreateMotionPlanner(file, arm, World().view());
         } catch (const std::runtime_error&) {
           // The parser opens the file itself, and cannot tell why that fails.
           throw std::bad_alloc();
         }
       }},
      {"point_cloud", [](Text text, Text file) { ParsePointCloud(text, file); }},
      {"request", [](Text text, Text file) { ParseRequest(text, file); }},
      {"scene_text", [](Text text, Text file) { PlaceScene(ParseSceneText(text, file)); }},
      {"scene_yaml", [](Text text, Text file) { PlaceScene(ParseSceneYaml(text, file)); }},
      {"spheres",
       [](Text text, Text file) {
         ParseRobot(testing::SmallArm(), {}, FileText{file, text});
       }},
      {"srdf", [](Text text, Text file) { ParseSrdf(text, file); }},
      {"trajectory", [](Text text, Text file) { ToText(ParseTrajectory(text, file), TrajectoryForm::kCsv); }},
  };
}

// Where assimp and the parser of urdfdom are interrupted, they forget what they had made until then.
bool LosesMemory(const std::filesystem::path& file) {
  const std::string form = file.extension().string();
  return form == ".stl" || form == ".obj" || form == ".dae" || file.parent_path().filename() == "spheres";
}

TEST(FailedAllocation, LeavesNothingOfALoad) {
  if (!testing::FailsAllocations()) {
    GTEST_SKIP() << "no allocation can be made to fail in this build";
  }
  const testing::LogCapture quiet(-1);
  long num_failures = 0;
  for (const Reader& reader : Readers()) {
    for (const auto& entry : std::filesystem::directory_iterator(kFiles / reader.folder)) {
      if (entry.path().extension() == ".json") {
        // Nothing here can mend that values of nlohmann::json ask for memory as they are destroyed.
        continue;
      }
      const std::string file = entry.path().string();
      SCOPED_TRACE(file);
      const std::string text = testing::ReadFile(file);
      // Libraries keep what they make at first.
      reader.read(text, file);
      const long num_blocks = testing::NumBlocks();
      for (long n = 0; !testing::Survives(n, [&] { reader.read(text, file); }); ++n) {
        ++num_failures;
        ASSERT_TRUE(testing::NumBlocks() == num_blocks || LosesMemory(entry.path())) << n;
      }
    }
  }
  EXPECT_GT(num_failures, 1000);
}

}  // namespace
}  // namespace kavo::formats

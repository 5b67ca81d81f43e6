#include <yaml-cpp/yaml.h>

#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/util/fatal_error.h"
#include "tests/fuzz/fuzzer.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    try {
      const kavo::planning::MotionPlannerConfig config(YAML::Load(text));
      kavo::testing::Require(config.seed > 0 && config.step_size > 0.0 &&
                             config.task_space_limits.size() == 3);
    } catch (const YAML::Exception&) {
    } catch (const kavo::util::FatalError&) {
    }
  });
}

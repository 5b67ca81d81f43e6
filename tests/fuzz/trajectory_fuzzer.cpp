#include <algorithm>
#include <string>

#include "kavo/formats/trajectory_file.h"
#include "tests/fuzz/fuzzer.h"

// What was read comes back the same after it was written.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    using kavo::formats::TrajectoryForm;
    using kavo::formats::TrajectorySamples;
    const TrajectorySamples samples = kavo::formats::ParseTrajectory(text, "input");
    for (const TrajectoryForm form : {TrajectoryForm::kJson, TrajectoryForm::kCsv, TrajectoryForm::kYaml}) {
      // Names may be of no other form.
      const bool is_plain =
          std::all_of(samples.joint_names.begin(), samples.joint_names.end(), [](const std::string& name) {
            return !name.empty() && name != "time" &&
                   name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") == std::string::npos;
          });
      const bool is_in_range = std::all_of(samples.times.begin(), samples.times.end(),
                                           [](double time) { return time >= 0.0 && time < 1e9; });
      if (is_plain && (form != TrajectoryForm::kYaml || is_in_range)) {
        const TrajectorySamples again =
            kavo::formats::ParseTrajectory(kavo::formats::ToText(samples, form), "written");
        kavo::testing::Require(
            again.joint_names == samples.joint_names && again.positions == samples.positions &&
            again.velocities == samples.velocities && again.accelerations == samples.accelerations);
        kavo::testing::Require(form == TrajectoryForm::kYaml || again.times == samples.times);
      }
    }
  });
}

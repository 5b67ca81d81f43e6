#include "kavo/formats/trajectory_file.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/formats/files.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using testing::Vec;

void ExpectSame(const TrajectorySamples& samples, const TrajectorySamples& expected) {
  EXPECT_EQ(samples.joint_names, expected.joint_names);
  EXPECT_EQ(samples.times, expected.times);
  EXPECT_EQ(samples.positions, expected.positions);
  EXPECT_EQ(samples.velocities, expected.velocities);
  EXPECT_EQ(samples.accelerations, expected.accelerations);
}

// Bit for bit, by way of the disk.
TEST(TrajectoryFile, SamplesComeBackAsTheyWere) {
  const testing::Folder directory;
  std::mt19937 engine(5);
  TrajectorySamples samples;
  samples.joint_names = {"plain", "with, comma", "1.5", "plain/effort", "a: \"b\"\nc"};
  for (int i = 0; i < 20; ++i) {
    // Times of a message are whole nanoseconds.
    samples.times.push_back(i * 250123 / 1e9 + 3 * i);
    samples.positions.push_back(testing::RandomVec(engine, 5, -4.0, 4.0));
    samples.positions.back()[i % 5] = i % 2 == 0 ? 1e-300 : 1e22;
  }
  for (const auto& more :
       {&TrajectorySamples::positions, &TrajectorySamples::velocities, &TrajectorySamples::accelerations}) {
    samples.*more = samples.positions;
    (samples.*more)[3][2] = -1.0 / 3.0;
    for (const char* ending : {".csv", ".json", ".yaml", ".yml"}) {
      const std::string file = directory.path() + "/samples" + ending;
      SCOPED_TRACE(file);
      WriteTrajectory(samples, file, *TrajectoryFormOf(file));
      ExpectSame(ReadTrajectory(file), samples);
    }
  }
  EXPECT_FALSE(TrajectoryFormOf("samples.txt"));
}

TEST(TrajectoryFile, TextsAreThoseOfTheirForms) {
  const TrajectorySamples samples{{"a", "b"},
                                  {0.0, 1.9999999999},
                                  {Vec({0.0, 1e-7}), Vec({1.5, -2.0})},
                                  {Vec({0.0, 0.5}), Vec({1e22, 0.0})},
                                  {}};
  EXPECT_EQ(ToText(samples, TrajectoryForm::kCsv),
            "time,a,b,a/velocity,b/velocity\n0,0,1e-07,0,0.5\n1.9999999999,1.5,-2,1e+22,0\n");
  EXPECT_EQ(ToText(samples, TrajectoryForm::kYaml),
            "joint_names: [\"a\", \"b\"]\npoints:\n"
            "- positions: [0.0, 1.0e-07]\n  velocities: [0.0, 0.5]\n  time_from_start: {sec: 0, nanosec: 0}\n"
            "- positions: [1.5, -2.0]\n  velocities: [1.0e+22, 0.0]\n"
            "  time_from_start: {sec: 2, nanosec: 0}\n");
  for (const auto& edit : std::vector<void (*)(TrajectorySamples&)>{
           [](TrajectorySamples& s) { s.positions.pop_back(); },
           [](TrajectorySamples& s) { s.velocities[1] = Vec({1.0}); },
           [](TrajectorySamples& s) { s.accelerations = s.velocities, s.velocities.clear(); },
           [](TrajectorySamples& s) { s.positions[0][1] = std::nan(""); },
           [](TrajectorySamples& s) { s.times[0] = -1.0; }, [](TrajectorySamples& s) { s.times[1] = 3e9; }}) {
    TrajectorySamples bad = samples;
    edit(bad);
    EXPECT_THROW(ToText(bad, TrajectoryForm::kYaml), util::FatalError);
  }
}

TEST(TrajectoryFile, MayComeFromElsewhere) {
  const TrajectorySamples expected{
      {"a", "b"}, {0.25, 1.5}, {Vec({1, 2}), Vec({3, 4})}, {Vec({5, 6}), Vec({7, 8})}, {}};
  for (const char* const text :
       {// Columns in any order.
        "time, b, a, a/velocity, b/velocity\r\n0.25,2,1,5,6\n\n1.5,4,3,7,8\n",
        // As a recorder prints a message, and as an older one does.
        "header:\n  frame_id: ''\njoint_names: [a, b]\npoints:\n- positions: [1, 2]\n  velocities: [5, 6]\n"
        "  accelerations: []\n  effort: [9]\n  time_from_start:\n    sec: 0\n    nanosec: 250000000\n"
        "- {positions: [3, 4], velocities: [7, 8], time_from_start: {sec: 1, nanosec: 500000000}}\n",
        "---\ntrajectory:\n  joint_names:\n  - a\n  - b\n  points:\n  - positions: [1, 2]\n    velocities: "
        "[5, 6]\n"
        "    time_from_start: {secs: 0, nsecs: 250000000}\n"
        "  - {positions: [3, 4], velocities: [7, 8], time_from_start: {secs: 1, nsecs: 500000000}}\n",
        "{\"joint_trajectory\":{\"joint_names\":[\"a\",\"b\"],\"points\":[\n"
        "\t{\"time_from_start\":0.25,\"positions\":[1,2],\"velocities\":[5,6]},\n"
        "\t{\"time_from_start\":1.5,\"positions\":[3,4],\"velocities\":[7,8]}]}}"}) {
    SCOPED_TRACE(text);
    TrajectorySamples samples = ParseTrajectory(text, "t");
    if (samples.joint_names.front() == "b") {
      std::swap(samples.joint_names[0], samples.joint_names[1]);
      for (auto* values : {&samples.positions, &samples.velocities}) {
        for (Eigen::VectorXd& value : *values) {
          value.reverseInPlace();
        }
      }
    }
    ExpectSame(samples, expected);
  }
}

TEST(TrajectoryFile, FaultsAreNamed) {
  testing::ExpectFaults("trajectory", [](const std::string& text) { ParseTrajectory(text, "t"); });
}

}  // namespace
}  // namespace kavo::formats

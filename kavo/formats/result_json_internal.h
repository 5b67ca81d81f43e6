#pragma once

#include <Eigen/Core>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/plan_record.h"
#include "kavo/formats/robot_drawing.h"
#include "kavo/formats/scene_drawing.h"
#include "kavo/math/pose3.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! What files of results are, and the version of what is in them: see docs/formats.md.
inline constexpr char kPlanFormat[] = "kavo/plan";
inline constexpr char kBenchFormat[] = "kavo/bench";
inline constexpr int kFormatVersion = 1;

//! Keeps the order in which keys are added.
using ResultJson = nlohmann::ordered_json;

//! An array of numbers.
template <typename Derived>
ResultJson ToArray(const Eigen::DenseBase<Derived>& v) {
  ResultJson array = ResultJson::array();
  for (const double entry : v) {
    array.push_back(entry);
  }
  return array;
}

//! An array of what a function makes of each element.
template <typename List, typename Function>
ResultJson ToArray(const List& list, const Function& to_json) {
  ResultJson array = ResultJson::array();
  for (const auto& element : list) {
    array.push_back(to_json(element));
  }
  return array;
}

ResultJson ToArray(const std::vector<Eigen::VectorXd>& path);

//! Null for none.
template <typename Value>
ResultJson ToJsonOrNull(const std::optional<Value>& value) {
  return value ? ResultJson(*value) : ResultJson();
}

//! To a multiple of one over `scale`, with a zero that has no sign.
inline double Rounded(double value, double scale) { return std::round(value * scale) / scale + 0.0; }

ResultJson PoseToJson(const Pose3& pose);
KAVO_EXPORT ResultJson RobotToJson(const RobotDrawing& robot);
KAVO_EXPORT ResultJson SceneToJson(const SceneDrawing& scene);
KAVO_EXPORT ResultJson FilesToJson(const std::vector<InputFile>& files);
KAVO_EXPORT ResultJson
SettingsToJson(const std::vector<std::pair<std::string, PlanRecord::Setting>>& settings);
KAVO_EXPORT ResultJson StagesToJson(const std::vector<Stage>& stages,
                                    const std::vector<StagedResults::Part>& parts);

}  // namespace kavo::formats

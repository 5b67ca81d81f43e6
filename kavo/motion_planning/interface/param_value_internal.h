#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "kavo/motion_planning/interface/motion_planner.h"

namespace kavo {

struct MotionPlanner::ParamValue::Impl {
  //! In the order of the alternatives of `value`.
  enum class DataType { INTEGER, FLOAT64, VECTOR3D, FLOAT64_VECTOR_ITER, BOOLEAN, STRING, LIMIT_VECTOR_ITER };

  //! A view of a vector: its first element, and how many there are.
  template <typename T>
  using View = std::pair<typename std::vector<T>::const_iterator, std::size_t>;

  using Value = std::variant<int, double, Eigen::Vector3d, View<double>, bool, std::string, View<Limit>>;

  explicit Impl(Value value_in)
      : data_type(static_cast<DataType>(value_in.index())), value(std::move(value_in)) {}

  DataType data_type;
  Value value;
};

}  // namespace kavo

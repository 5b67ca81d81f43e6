#pragma once

#include <pybind11/stl.h>

#include <utility>

#include "bindings/python/bindings.h"
#include "kavo/kinematics/interface/inverse_kinematics.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/interface/goal_report.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/util/line_motion.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"

// Answers are named tuples of `kavo.records`, which are plain data in Python: they print, compare field by
// field and pickle by themselves. The structs of the library become such records wherever pybind11 hands one
// to Python.

namespace kavo::python {

//! The class of that name in `kavo.records`.
py::handle RecordClass(const char* name);

//! A record of its fields, in order.
template <typename... Fields>
py::object MakeRecord(const char* name, Fields&&... fields) {
  return RecordClass(name)(std::forward<Fields>(fields)...);
}

py::object ToRecord(const planning::ConfigurationFault::Limit& limit);
py::object ToRecord(const planning::ConfigurationFault::Contact& contact);
py::object ToRecord(const planning::ConfigurationFault::SelfContact& contact);
py::object ToRecord(const planning::ConfigurationFault& fault);
py::object ToRecord(const NearestPose& nearest);
py::object ToRecord(const GoalReport& report);
py::object ToRecord(const QueryReport& report);
py::object ToRecord(const planning::PathPlace& place);
py::object ToRecord(const planning::PathCheck::Bad& bad);
py::object ToRecord(const planning::PathCheck::Clearance& clearance);
py::object ToRecord(const planning::PathCheck::SelfClearance& clearance);
py::object ToRecord(const planning::PathCheck::LimitMargin& margin);
py::object ToRecord(const planning::PathCheck& check);
py::object ToRecord(const planning::PathProof& proof);
py::object ToRecord(const planning::MotionLimits& limits);

//! What holds configurations has to be told their length: there may be none.
py::object ToRecord(const planning::LineMotion& line, Eigen::Index dimension);
py::object ToRecord(const StagedResults& results, Eigen::Index dimension);
py::object ToRecord(const SearchRecord& search, Eigen::Index dimension);
py::object ToRecord(const InverseKinematicsResult& result, Eigen::Index dimension);

//! From Python only to there.
template <typename Type>
struct RecordCaster {
  static constexpr auto name = py::detail::const_name("tuple");

  static py::handle cast(const Type& value, py::return_value_policy /*policy*/, py::handle /*parent*/) {
    return ToRecord(value).release();
  }
};

}  // namespace kavo::python

namespace pybind11::detail {

template <>
struct type_caster<kavo::planning::ConfigurationFault::Limit>
    : kavo::python::RecordCaster<kavo::planning::ConfigurationFault::Limit> {};
template <>
struct type_caster<kavo::planning::ConfigurationFault::Contact>
    : kavo::python::RecordCaster<kavo::planning::ConfigurationFault::Contact> {};
template <>
struct type_caster<kavo::planning::ConfigurationFault::SelfContact>
    : kavo::python::RecordCaster<kavo::planning::ConfigurationFault::SelfContact> {};
template <>
struct type_caster<kavo::planning::ConfigurationFault>
    : kavo::python::RecordCaster<kavo::planning::ConfigurationFault> {};
template <>
struct type_caster<kavo::NearestPose> : kavo::python::RecordCaster<kavo::NearestPose> {};
template <>
struct type_caster<kavo::GoalReport> : kavo::python::RecordCaster<kavo::GoalReport> {};
template <>
struct type_caster<kavo::QueryReport> : kavo::python::RecordCaster<kavo::QueryReport> {};
template <>
struct type_caster<kavo::planning::PathPlace> : kavo::python::RecordCaster<kavo::planning::PathPlace> {};
template <>
struct type_caster<kavo::planning::PathCheck::Bad>
    : kavo::python::RecordCaster<kavo::planning::PathCheck::Bad> {};
template <>
struct type_caster<kavo::planning::PathCheck::Clearance>
    : kavo::python::RecordCaster<kavo::planning::PathCheck::Clearance> {};
template <>
struct type_caster<kavo::planning::PathCheck::SelfClearance>
    : kavo::python::RecordCaster<kavo::planning::PathCheck::SelfClearance> {};
template <>
struct type_caster<kavo::planning::PathCheck::LimitMargin>
    : kavo::python::RecordCaster<kavo::planning::PathCheck::LimitMargin> {};
template <>
struct type_caster<kavo::planning::PathCheck> : kavo::python::RecordCaster<kavo::planning::PathCheck> {};
template <>
struct type_caster<kavo::planning::PathProof> : kavo::python::RecordCaster<kavo::planning::PathProof> {};
template <>
struct type_caster<kavo::planning::MotionLimits> : kavo::python::RecordCaster<kavo::planning::MotionLimits> {
};

}  // namespace pybind11::detail

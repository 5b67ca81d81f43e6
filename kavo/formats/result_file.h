#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/plan_record.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! Configurations along a path.
struct PathFile {
  //! Empty where the file does not name the joints; else one for each coordinate.
  std::vector<std::string> joint_names;
  //! At least one, and all of one length.
  std::vector<Eigen::VectorXd> configurations;
  //! Of JSON: where other joints stood.
  std::map<std::string, double> held_joints;
};

//! The record as JSON, indented by two spaces and with the keys in one order (docs/formats.md). Numbers are
//! written such that reading them gives the same bits, but for what is only drawn, which is rounded; what is
//! not finite, or not there, becomes null.
KAVO_EXPORT std::string ToJson(const PlanRecord& record);

//! Configurations as CSV: a line with the joint names, then one configuration a line. Numbers are as short as
//! they can be with the same bits. A name with a comma, a quote or a line break, or one that looks like a
//! number, is quoted. A configuration of another length than the names is a fatal error.
KAVO_EXPORT std::string ToCsv(const std::vector<std::string>& joint_names,
                              const std::vector<Eigen::VectorXd>& configurations);

//! Writes the text of `ToJson` to a file. Throws `FileError` if that fails.
KAVO_EXPORT void WriteJson(const PlanRecord& record, const std::string& file);
//! Writes the text of `ToCsv` to a file. Throws `FileError` if that fails.
KAVO_EXPORT void WriteCsv(const std::vector<std::string>& joint_names,
                          const std::vector<Eigen::VectorXd>& configurations, const std::string& file);

//! Reads a path from JSON (an object with the key `path`, and perhaps `joint_names` and `held_joints`) or
//! from CSV (with or without a line of names). What starts with a brace is JSON. Throws `FileError` for a
//! file that cannot be read, has neither form or holds no configuration.
//! \param run Of JSON with several paths (an object with the key `runs`, an array of such objects): which is
//!     meant, counted from 0. It has to be given for them and for nothing else.
KAVO_EXPORT PathFile ReadPath(const std::string& file, const std::optional<std::size_t>& run = {});

//! The same from the text of a file, with a name for its errors.
//!
//! @code
//! const std::vector<Eigen::VectorXd> path = {Eigen::Vector2d(0.0, 0.1), Eigen::Vector2d(1.0, 0.2)};
//! const std::string text = kavo::formats::ToCsv({"shoulder", "elbow"}, path);
//! const kavo::formats::PathFile read = kavo::formats::ParsePath(text, "path.csv");
//! assert(read.joint_names[1] == "elbow" && read.configurations == path);
//! @endcode
KAVO_EXPORT PathFile ParsePath(const std::string& text, const std::string& file,
                               const std::optional<std::size_t>& run = {});

}  // namespace kavo::formats

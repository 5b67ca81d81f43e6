#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

namespace kavo::formats {

//! Numbers in lines of equal length, perhaps below a line of names.
struct CsvTable {
  //! Empty where the first line has numbers.
  std::vector<std::string> names;
  std::vector<Eigen::VectorXd> rows;
};

//! A first line in which no field is a number has the names. Blank lines are passed over. Throws `FileError`
//! for lines of another length than the first one and for what is no number.
CsvTable ParseCsv(const std::string& text, const std::string& file);

//! With a line of names. Numbers are as short as they can be with the same bits; a name with a comma, a quote
//! or a line break, or one that looks like a number, is quoted.
std::string CsvText(const CsvTable& table);

}  // namespace kavo::formats

#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

namespace kavo::command {

//! A number for a reader: six significant digits unless told otherwise.
std::string Number(double value, int digits = 6);

//! A distance in the unit that suits it: "12.3 mm", "1.2 m".
std::string Distance(double metres);

//! A time in the unit that suits it: "812 us", "1.2 ms", "3.4 s".
std::string Time(double seconds);

//! "1,2,3": what `--start` takes.
std::string Configuration(const Eigen::VectorXd& q);

std::string Join(const std::vector<std::string>& parts, const std::string& separator);

//! The text without what a terminal would take as a command: control characters become "?".
//! \param keeps_lines Whether line ends stay.
std::string Printable(const std::string& text, bool keeps_lines = false);

//! "'a', 'b'", printable.
std::string JoinQuoted(const std::vector<std::string>& names);

//! "; did you mean 'goal'?" with the candidate that takes the fewest changes of a letter, if they are few;
//! else empty.
std::string Suggestion(const std::string& word, const std::vector<std::string>& candidates);

//! The parts between the separators; one empty part for an empty text.
std::vector<std::string> Split(const std::string& text, char separator);

//! Finite numbers with commas between them; empty if one is not.
std::optional<std::vector<double>> ParseNumbers(const std::string& text);

//! Rows of equally many cells as lines with aligned columns: the first column to the left, the others to the
//! right.
std::string Table(const std::vector<std::vector<std::string>>& rows);

}  // namespace kavo::command

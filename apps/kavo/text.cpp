#include "apps/kavo/text.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <sstream>

#include "kavo/util/parse_number.h"

namespace kavo::command {

std::string Number(double value, int digits) {
  std::ostringstream text;
  text.precision(digits);
  text << value;
  return text.str();
}

std::string Distance(double metres) {
  return std::fabs(metres) < 1.0 ? Number(metres * 1e3, 3) + " mm" : Number(metres, 3) + " m";
}

std::string Time(double seconds) {
  if (seconds < 1e-3) {
    return Number(seconds * 1e6, 3) + " us";
  }
  return seconds < 1.0 ? Number(seconds * 1e3, 3) + " ms" : Number(seconds, 3) + " s";
}

std::string Configuration(const Eigen::VectorXd& q) {
  std::vector<std::string> parts;
  for (Eigen::Index i = 0; i < q.size(); ++i) {
    parts.push_back(Number(q[i]));
  }
  return Join(parts, ",");
}

std::string Join(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const std::string& part : parts) {
    text += (&part == &parts.front() ? "" : separator) + part;
  }
  return text;
}

std::string Printable(const std::string& text, bool keeps_lines) {
  std::string printable = text;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // The second range of control characters takes two bytes.
    const bool starts_control = byte == 0xC2 && i + 1 < text.size() &&
                                static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                                static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (starts_control) {
      printable[i] = printable[i + 1] = '?';
    } else if ((byte < 0x20 && !(keeps_lines && text[i] == '\n')) || byte == 0x7F) {
      printable[i] = '?';
    }
  }
  return printable;
}

std::string JoinQuoted(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "'" : ", '") + Printable(name) + "'";
  }
  return text;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::optional<std::vector<double>> ParseNumbers(const std::string& text) {
  std::vector<double> values;
  for (const std::string& part : Split(text, ',')) {
    const std::optional<double> value = util::ParseNumber(part);
    if (!value) {
      return std::nullopt;
    }
    values.push_back(*value);
  }
  return values;
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const std::vector<std::string>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string text;
  for (const std::vector<std::string>& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - row[i].size(), ' ');
      text += i == 0 ? row[i] + padding : "  " + padding + row[i];
    }
    text += '\n';
  }
  return text;
}

}  // namespace kavo::command

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

namespace {

// Letters to insert, drop or exchange, neighbours swapped included (Damerau, 1964).
std::size_t NumChanges(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> changes(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t k = 0; k <= b.size(); ++k) {
      if (i == 0 || k == 0) {
        changes[i][k] = i + k;
        continue;
      }
      const std::size_t exchanged = changes[i - 1][k - 1] + (a[i - 1] == b[k - 1] ? 0 : 1);
      changes[i][k] = std::min({changes[i - 1][k] + 1, changes[i][k - 1] + 1, exchanged});
      if (i > 1 && k > 1 && a[i - 1] == b[k - 2] && a[i - 2] == b[k - 1]) {
        changes[i][k] = std::min(changes[i][k], changes[i - 2][k - 2] + 1);
      }
    }
  }
  return changes[a.size()][b.size()];
}

}  // namespace

std::string Suggestion(const std::string& word, const std::vector<std::string>& candidates) {
  const std::string* nearest = nullptr;
  std::size_t fewest = 1 + word.size() / 3;
  for (const std::string& candidate : candidates) {
    if (const std::size_t changes = NumChanges(word, candidate); changes <= fewest) {
      nearest = changes < fewest || nearest == nullptr ? &candidate : nearest;
      fewest = changes;
    }
  }
  return nearest == nullptr ? "" : "; did you mean '" + *nearest + "'?";
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

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "kavo/formats/csv_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

// One field of a line of CSV.
struct Field {
  std::string text;
  bool is_quoted = false;
  int line = 0;

  std::optional<double> number() const { return is_quoted ? std::nullopt : util::ParseNumber(text); }
};

std::string CsvName(const std::string& name) {
  if (name.find_first_of(",\"\r\n") == std::string::npos && name == Trimmed(name) && !name.empty() &&
      !util::ParseNumber(name)) {
    return name;
  }
  std::string quoted = "\"";
  for (const char c : name) {
    quoted += c == '"' ? "\"\"" : std::string(1, c);
  }
  return quoted + "\"";
}

class CsvReader {
 public:
  CsvReader(std::string_view text, const std::string& file) : rest_(text), file_(file) {}

  CsvTable read() {
    CsvTable table;
    std::vector<Field> fields = readRecord();
    const std::size_t num_fields = fields.size();
    if (std::none_of(fields.begin(), fields.end(),
                     [](const Field& field) { return field.number().has_value(); })) {
      for (Field& field : fields) {
        table.names.push_back(std::move(field.text));
      }
      fields = readRecord();
    }
    for (; !fields.empty(); fields = readRecord()) {
      if (fields.size() != num_fields) {
        throw FileError(file_, fields.front().line,
                        "found " + std::to_string(fields.size()) + " values, expected " +
                            std::to_string(num_fields) + " as in the first line");
      }
      Eigen::VectorXd& row = table.rows.emplace_back(static_cast<Eigen::Index>(num_fields));
      for (std::size_t i = 0; i < num_fields; ++i) {
        const std::optional<double> number = fields[i].number();
        if (!number) {
          throw FileError(file_, fields[i].line,
                          "found " + Quoted(fields[i].text) + ", expected a finite number");
        }
        row[static_cast<Eigen::Index>(i)] = *number;
      }
    }
    return table;
  }

 private:
  // The fields of the next line that is not blank; none at the end of the text.
  std::vector<Field> readRecord() {
    while (!rest_.empty()) {
      std::vector<Field> fields = {readField()};
      while (skip(',')) {
        fields.push_back(readField());
      }
      skip('\n');
      ++line_;
      if (fields.size() > 1 || fields.front().is_quoted || !fields.front().text.empty()) {
        return fields;
      }
    }
    return {};
  }

  // Up to a comma or the end of the line. In quotes both are part of the field.
  Field readField() {
    Field field;
    field.line = line_;
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r"), rest_.size()));
    field.is_quoted = skip('"');
    if (field.is_quoted) {
      do {
        const std::size_t end = rest_.find('"');
        if (end == std::string_view::npos) {
          throw FileError(file_, field.line, "found a quote that does not end, expected another quote");
        }
        // Two quotes stand for one that does not end the field.
        field.text.append(rest_.substr(0, end + 1));
        rest_.remove_prefix(end + 1);
      } while (skip('"'));
      field.text.pop_back();
      line_ += static_cast<int>(std::count(field.text.begin(), field.text.end(), '\n'));
    }
    const std::size_t end = std::min(rest_.find_first_of(",\n"), rest_.size());
    const std::string_view plain = Trimmed(rest_.substr(0, end));
    rest_.remove_prefix(end);
    if (field.is_quoted && !plain.empty()) {
      throw FileError(file_, line_, "found " + Quoted(plain) + " after a quote, expected a comma");
    }
    field.text += plain;
    return field;
  }

  bool skip(char c) {
    if (rest_.empty() || rest_.front() != c) {
      return false;
    }
    rest_.remove_prefix(1);
    return true;
  }

  std::string_view rest_;
  std::string file_;
  int line_ = 1;
};

}  // namespace

CsvTable ParseCsv(const std::string& text, const std::string& file) { return CsvReader(text, file).read(); }

std::string CsvText(const CsvTable& table) {
  std::string text;
  for (const std::string& name : table.names) {
    text += (&name == &table.names.front() ? "" : ",") + CsvName(name);
  }
  text += '\n';
  for (const Eigen::VectorXd& row : table.rows) {
    for (Eigen::Index i = 0; i < row.size(); ++i) {
      text += (i == 0 ? "" : ",") + NumberText(row[i]);
    }
    text += '\n';
  }
  return text;
}

}  // namespace kavo::formats

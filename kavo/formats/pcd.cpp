#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "kavo/formats/binary_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/pcd_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/text_reader_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

struct Field {
  std::string_view name;
  NumberType type = NumberType::kFloat32;
  // Numbers of each point.
  std::size_t count = 1;

  std::size_t size() const { return SizeOf(type) * count; }
  // Room that only keeps others aligned.
  bool isPadding() const { return name == "_"; }
};

// The numbers of one field.
struct Column {
  NumberType type = NumberType::kFloat32;
  // That of the first point, and how many bytes farther on that of the next one is.
  const char* first = nullptr;
  std::size_t stride = 0;
};

std::optional<NumberType> TypeOf(std::string_view letter, std::size_t size) {
  static const std::map<std::pair<std::string_view, std::size_t>, NumberType> kTypes = {
      {{"I", 1}, NumberType::kInt8},    {{"U", 1}, NumberType::kUint8},  {{"I", 2}, NumberType::kInt16},
      {{"U", 2}, NumberType::kUint16},  {{"I", 4}, NumberType::kInt32},  {{"U", 4}, NumberType::kUint32},
      {{"I", 8}, NumberType::kInt64},   {{"U", 8}, NumberType::kUint64}, {{"F", 4}, NumberType::kFloat32},
      {{"F", 8}, NumberType::kFloat64},
  };
  const auto found = kTypes.find({letter, size});
  return found == kTypes.end() ? std::nullopt : std::optional(found->second);
}

// Undoes the compression LZF (Lehmann, 2000): runs of bytes, and repeats of what came up to 8 KiB before.
// None where the bytes are not what it makes, or do not give this size.
std::optional<std::string> Decompressed(std::string_view bytes, std::size_t size) {
  std::string result;
  result.reserve(size);
  std::size_t i = 0;
  const auto next = [&] { return static_cast<unsigned char>(bytes[i++]); };
  while (i < bytes.size()) {
    const std::size_t control = next();
    if (control < 32) {
      const std::size_t length = control + 1;
      if (length > bytes.size() - i || length > size - result.size()) {
        return std::nullopt;
      }
      result.append(bytes.substr(i, length));
      i += length;
      continue;
    }
    std::size_t length = control >> 5;
    if (bytes.size() - i < (length == 7 ? 2 : 1)) {
      return std::nullopt;
    }
    length += length == 7 ? next() : 0;
    length += 2;
    const std::size_t distance = ((control & 31) << 8) + next() + 1;
    if (distance > result.size() || length > size - result.size()) {
      return std::nullopt;
    }
    // What is repeated may reach into its own repeat.
    for (; length > 0; --length) {
      result += result[result.size() - distance];
    }
  }
  return result.size() == size ? std::optional(std::move(result)) : std::nullopt;
}

class PcdReader {
 public:
  PcdReader(const std::string& bytes, const std::string& file) : reader_(bytes, file) {}

  std::vector<Eigen::Vector3d> read() {
    const std::string_view data = readHeader();
    checkFields();
    if (num_points_ == 0) {
      return {};
    }
    if (data == "ascii") {
      readText();
    } else if (data == "binary") {
      readBinary();
    } else if (data == "binary_compressed") {
      readCompressed();
    } else {
      reader_.fail("data " + Quoted(data), "ascii, binary or binary_compressed");
    }
    return std::move(points_);
  }

 private:
  // Up to the line DATA, whose value is the result.
  std::string_view readHeader() {
    std::optional<std::size_t> width;
    std::optional<std::size_t> height;
    std::optional<std::size_t> num_points;
    while (!reader_.isAtEnd()) {
      std::vector<std::string_view> words = Tokens(reader_.readLine());
      if (words.empty() || words.front().front() == '#') {
        continue;
      }
      const std::string_view key = words.front();
      words.erase(words.begin());
      if (key == "FIELDS" || key == "COLUMNS") {
        // What came of them before is one for each of the former ones.
        if (!fields_.empty()) {
          reader_.fail("the fields again", "them once");
        }
        fields_.resize(words.size());
        for (std::size_t i = 0; i < words.size(); ++i) {
          fields_[i].name = words[i];
        }
      } else if (key == "SIZE" || key == "TYPE" || key == "COUNT") {
        if (words.size() != fields_.size()) {
          reader_.fail(std::to_string(words.size()) + " values of " + std::string(key),
                       "one for each of " + std::to_string(fields_.size()) + " fields");
        }
        (key == "SIZE" ? sizes_ : key == "TYPE" ? types_ : counts_) = words;
      } else if (key == "WIDTH") {
        width = count(words);
      } else if (key == "HEIGHT") {
        height = count(words);
      } else if (key == "POINTS") {
        num_points = count(words);
      } else if (key == "VIEWPOINT") {
        checkViewpoint(words);
      } else if (key == "DATA") {
        const std::size_t product = width.value_or(0) * height.value_or(1);
        num_points_ = num_points.value_or(product);
        if ((width && num_points_ != product) || num_points_ > kMaxPoints) {
          reader_.fail("a header for " + std::to_string(num_points_) + " points, of a width and height for " +
                           std::to_string(product),
                       "as many, and no more than " + std::to_string(kMaxPoints));
        }
        return words.empty() ? std::string_view() : words.front();
      }
    }
    reader_.fail("the end of the file", "a line DATA");
  }

  // A whole number, two of which may be multiplied.
  std::size_t count(const std::vector<std::string_view>& words) const {
    const std::string_view word = words.empty() ? std::string_view() : words.front();
    std::uint32_t count = 0;
    const auto [stop, fault] = std::from_chars(word.data(), word.data() + word.size(), count);
    if (word.empty() || fault != std::errc() || stop != word.data() + word.size()) {
      reader_.fail(Quoted(word), "a whole number");
    }
    return count;
  }

  void checkViewpoint(const std::vector<std::string_view>& words) const {
    static const std::array<double, 7> kNone = {0, 0, 0, 1, 0, 0, 0};
    bool is_none = words.size() == kNone.size();
    for (std::size_t i = 0; is_none && i < kNone.size(); ++i) {
      is_none = ParseMeasured(words[i]) == kNone[i];
    }
    if (!is_none) {
      KAVO_LOG(LogLevel::kWarning) << reader_.file() << ":" << reader_.line()
                                   << ": the VIEWPOINT is where the sensor stood, and is not applied: the "
                                      "points are taken as they are.";
    }
  }

  void checkFields() {
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      const std::string_view letter = types_.empty() ? std::string_view("F") : types_[i];
      const std::size_t size = sizes_.empty() ? 4 : count({sizes_[i]});
      const std::optional<NumberType> type = TypeOf(letter, size);
      if (!type) {
        reader_.fail("field " + Quoted(fields_[i].name) + " of type " + Quoted(letter) + " and size " +
                         std::to_string(size),
                     "I or U of 1, 2, 4 or 8 bytes, or F of 4 or 8");
      }
      fields_[i].type = *type;
      fields_[i].count = counts_.empty() ? 1 : count({counts_[i]});
    }
    constexpr std::array<const char*, 3> kNames = {"x", "y", "z"};
    for (std::size_t axis = 0; axis < kNames.size(); ++axis) {
      const auto field = std::find_if(fields_.begin(), fields_.end(),
                                      [&](const Field& candidate) { return candidate.name == kNames[axis]; });
      if (field == fields_.end() || field->count != 1) {
        reader_.fail("no field " + Quoted(kNames[axis]) + " of one number", "fields x, y and z");
      }
      axes_[axis] = static_cast<std::size_t>(field - fields_.begin());
    }
  }

  // A measure of each field, of those before `end` together.
  template <typename Measure>
  std::size_t sum(std::size_t end, const Measure& measure) const {
    std::size_t sum = 0;
    for (std::size_t i = 0; i < end; ++i) {
      sum += measure(fields_[i]);
    }
    return sum;
  }

  // How many points there are is believed only as far as there are bytes for them.
  void checkRoom(std::size_t num_bytes, std::size_t bytes_of_point) const {
    if (num_points_ > num_bytes / bytes_of_point) {
      reader_.fail(std::to_string(num_bytes) + " bytes of data",
                   std::to_string(num_points_) + " points of at least " + std::to_string(bytes_of_point));
    }
  }

  void readText() {
    const auto num_words = [](const Field& field) { return field.count; };
    const std::size_t row = sum(fields_.size(), num_words);
    // A number takes a character and a separator, but for the last one.
    checkRoom(reader_.rest().size() + 1, 2 * row);
    std::array<std::size_t, 3> columns;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      columns[axis] = sum(axes_[axis], num_words);
    }
    std::vector<std::string_view> words(row);
    points_.reserve(num_points_);
    for (std::size_t i = 0; i < num_points_; ++i) {
      for (std::string_view& word : words) {
        word = reader_.readWord();
      }
      std::array<double, 3> point;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::optional<double> number = ParseMeasured(words[columns[axis]]);
        if (!number) {
          reader_.fail(Quoted(words[columns[axis]]), "a number for each field of each point");
        }
        point[axis] = *number;
      }
      points_.emplace_back(point[0], point[1], point[2]);
    }
  }

  void readBinary() {
    const auto size = [](const Field& field) { return field.size(); };
    const std::size_t row = sum(fields_.size(), size);
    checkRoom(reader_.rest().size(), row);
    std::array<Column, 3> columns;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      columns[axis] = {fields_[axes_[axis]].type, reader_.rest().data() + sum(axes_[axis], size), row};
    }
    addPoints(columns);
  }

  // All numbers of one field, then all of the next.
  void readCompressed() {
    const auto size = [](const Field& field) { return field.isPadding() ? 0 : field.size(); };
    constexpr std::size_t kHeadSize = 8;
    const std::string_view data = reader_.rest();
    if (data.size() < kHeadSize) {
      reader_.fail(std::to_string(data.size()) + " bytes of data", "two sizes and compressed data");
    }
    const auto stated = [&](std::size_t at) {
      return static_cast<std::size_t>(LoadNumber(data.data() + at, NumberType::kUint32));
    };
    const std::size_t compressed_size = stated(0);
    const std::size_t decompressed_size = stated(4);
    // Three bytes stand for no more than 264.
    if (compressed_size > data.size() - kHeadSize || decompressed_size / 88 > compressed_size) {
      reader_.fail(std::to_string(data.size() - kHeadSize) + " bytes of compressed data",
                   std::to_string(compressed_size) + ", for " + std::to_string(decompressed_size));
    }
    checkRoom(decompressed_size, sum(fields_.size(), size));
    const std::optional<std::string> bytes =
        Decompressed(data.substr(kHeadSize, compressed_size), decompressed_size);
    if (!bytes) {
      reader_.fail("compressed data that is damaged", "data by LZF");
    }
    std::array<Column, 3> columns;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const Field& field = fields_[axes_[axis]];
      columns[axis] = {field.type, bytes->data() + sum(axes_[axis], size) * num_points_, field.size()};
    }
    addPoints(columns);
  }

  // Of the columns of x, y and z.
  void addPoints(const std::array<Column, 3>& columns) {
    points_.reserve(num_points_);
    for (std::size_t i = 0; i < num_points_; ++i) {
      Eigen::Vector3d& point = points_.emplace_back();
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const Column& column = columns[axis];
        point[static_cast<Eigen::Index>(axis)] = LoadNumber(column.first + i * column.stride, column.type);
      }
    }
  }

  TextReader reader_;
  std::vector<Field> fields_;
  // The words of these lines of the header, one for each field; empty without the line.
  std::vector<std::string_view> sizes_;
  std::vector<std::string_view> types_;
  std::vector<std::string_view> counts_;
  std::size_t num_points_ = 0;
  // Which fields are x, y and z.
  std::array<std::size_t, 3> axes_{};
  std::vector<Eigen::Vector3d> points_;
};

}  // namespace

std::vector<Eigen::Vector3d> ParsePcd(const std::string& bytes, const std::string& file) {
  return PcdReader(bytes, file).read();
}

}  // namespace kavo::formats

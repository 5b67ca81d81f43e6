#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>

#include "kavo/formats/cover_cache_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

namespace {

namespace fs = std::filesystem;

// A hash of 128 bits: two lanes that take in each word and each other.
class Hash {
 public:
  void add(std::uint64_t word) {
    a_ = Mixed((a_ ^ word) + b_);
    b_ = Mixed((b_ + word) ^ (a_ >> 1));
  }
  void add(double number) {
    std::uint64_t word;
    std::memcpy(&word, &number, sizeof word);
    add(word);
  }
  void add(const Eigen::Vector3d& vector) {
    for (int i = 0; i < 3; ++i) {
      add(vector[i]);
    }
  }
  void add(const std::string& text) {
    add(std::uint64_t{text.size()});
    for (std::size_t begin = 0; begin < text.size(); begin += 8) {
      std::uint64_t word = 0;
      std::memcpy(&word, text.data() + begin, std::min<std::size_t>(8, text.size() - begin));
      add(word);
    }
  }

  std::array<std::uint64_t, 2> value() const { return {Mixed(a_ + b_), Mixed(b_ ^ (a_ << 1))}; }

 private:
  // The finalizer of SplitMix64 (Steele, Lea and Flood, 2014).
  static std::uint64_t Mixed(std::uint64_t x) {
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
  }

  std::uint64_t a_ = 0x243f6a8885a308d3ULL;
  std::uint64_t b_ = 0x13198a2e03707344ULL;
};

// False for a shape that is no part of a robot file.
bool AddShape(const ObstacleShape& shape, Hash& hash) {
  hash.add(std::uint64_t{shape.index()});
  return std::visit(
      [&](const auto& solid) {
        using Shape = std::decay_t<decltype(solid)>;
        if constexpr (std::is_same_v<Shape, SphereObstacle>) {
          hash.add(solid.radius);
        } else if constexpr (std::is_same_v<Shape, BoxObstacle>) {
          hash.add(solid.size);
        } else if constexpr (std::is_same_v<Shape, CylinderObstacle>) {
          hash.add(solid.radius);
          hash.add(solid.height);
        } else if constexpr (std::is_same_v<Shape, MeshObstacle>) {
          hash.add(static_cast<std::uint64_t>(solid.interior));
          hash.add(std::uint64_t{solid.mesh->vertices().size()});
          for (const Eigen::Vector3d& vertex : solid.mesh->vertices()) {
            hash.add(vertex);
          }
          hash.add(std::uint64_t{solid.mesh->triangles().size()});
          for (const TriangleMesh::Triangle& triangle : solid.mesh->triangles()) {
            hash.add(std::uint64_t{triangle[0]} << 32 | triangle[1]);
            hash.add(std::uint64_t{triangle[2]});
          }
        } else {
          return false;
        }
        return true;
      },
      shape);
}

// What the file for a cover is called; empty where there is none.
std::string NameOf(const std::vector<CoverPart>& parts, const CoverOptions& options) {
  Hash hash;
  // The version of this program, and the sources that decide how a cover comes out.
  hash.add(std::string(KAVO_COVER_REVISION));
  hash.add(options.tolerance);
  hash.add(std::uint64_t{options.max_spheres.has_value()});
  hash.add(std::uint64_t{options.max_spheres.value_or(0)});
  for (const CoverPart& part : parts) {
    const Eigen::Quaterniond rotation = part.pose.rotation();
    hash.add(part.pose.translation());
    hash.add(Eigen::Vector3d(rotation.x(), rotation.y(), rotation.z()));
    hash.add(rotation.w());
    if (!AddShape(part.shape, hash)) {
      return {};
    }
  }
  const auto [a, b] = hash.value();
  std::array<char, 40> name;
  std::snprintf(name.data(), name.size(), "%016llx%016llx.cover", static_cast<unsigned long long>(a),
                static_cast<unsigned long long>(b));
  return name.data();
}

// A file: the numbers of the cover as they are in memory, behind their count, before a hash of all that.
constexpr std::size_t kNumFixed = 3;

std::string ToBytes(const SphereCover& cover) {
  std::vector<double> numbers = {static_cast<double>(cover.spheres.size()), cover.tolerance, cover.bulge};
  for (const math::Sphere& sphere : cover.spheres) {
    numbers.insert(numbers.end(), {sphere.center[0], sphere.center[1], sphere.center[2], sphere.radius});
  }
  Hash hash;
  for (const double number : numbers) {
    hash.add(number);
  }
  std::string bytes(numbers.size() * sizeof(double), '\0');
  std::memcpy(bytes.data(), numbers.data(), bytes.size());
  const std::array<std::uint64_t, 2> sum = hash.value();
  return bytes.append(reinterpret_cast<const char*>(sum.data()), sizeof sum);
}

std::optional<SphereCover> FromBytes(const std::string& bytes) {
  constexpr std::size_t kSumSize = 2 * sizeof(std::uint64_t);
  if (bytes.size() < kNumFixed * sizeof(double) + kSumSize) {
    return std::nullopt;
  }
  std::vector<double> numbers((bytes.size() - kSumSize) / sizeof(double));
  std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(double));
  const std::size_t num_spheres = (numbers.size() - kNumFixed) / 4;
  if (numbers[0] != static_cast<double>(num_spheres)) {
    return std::nullopt;
  }
  SphereCover cover{{}, numbers[2], numbers[1]};
  for (std::size_t i = kNumFixed; i + 4 <= numbers.size(); i += 4) {
    cover.spheres.push_back({{numbers[i], numbers[i + 1], numbers[i + 2]}, numbers[i + 3]});
  }
  return ToBytes(cover) == bytes ? std::optional(cover) : std::nullopt;
}

}  // namespace

std::optional<SphereCover> CoverCache::find(const std::vector<CoverPart>& parts,
                                            const CoverOptions& options) const {
  const std::string name = folder_.empty() ? "" : NameOf(parts, options);
  if (name.empty()) {
    return std::nullopt;
  }
  constexpr std::size_t kMaxSize = std::size_t{64} << 20;
  try {
    return FromBytes(ReadFile((fs::path(folder_) / name).string(), kMaxSize));
  } catch (const FileError&) {
    return std::nullopt;
  }
}

void CoverCache::keep(const std::vector<CoverPart>& parts, const CoverOptions& options,
                      const SphereCover& cover) const {
  const std::string name = folder_.empty() ? "" : NameOf(parts, options);
  if (name.empty()) {
    return;
  }
  std::error_code unused;
  fs::create_directories(folder_, unused);
  std::string temporary = (fs::path(folder_) / ".XXXXXX").string();
  const int descriptor = mkstemp(temporary.data());
  if (descriptor < 0) {
    return;
  }
  const std::string bytes = ToBytes(cover);
  const bool is_whole = write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  // Readers find the whole file or none, whoever else writes it.
  if (close(descriptor) != 0 || !is_whole ||
      std::rename(temporary.c_str(), (fs::path(folder_) / name).c_str()) != 0) {
    std::remove(temporary.c_str());
  }
}

}  // namespace kavo::formats

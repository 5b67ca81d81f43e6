#include "kavo/formats/assimp_internal.h"
#include "kavo/formats/binary_internal.h"
#include "kavo/formats/dae_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"

#ifdef KAVO_WITH_ASSIMP

#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace kavo::formats {

namespace {

// What is in memory, as a file.
class Content : public Assimp::IOStream {
 public:
  explicit Content(const std::string& content) : content_(content) {}

  std::size_t Read(void* to, std::size_t size, std::size_t count) override {
    const std::size_t left = content_.size() - at_;
    const std::size_t num_read = size == 0 ? 0 : std::min(count, left / size);
    std::memcpy(to, content_.data() + at_, num_read * size);
    at_ += num_read * size;
    return num_read;
  }
  std::size_t Write(const void*, std::size_t, std::size_t) override { return 0; }
  aiReturn Seek(std::size_t offset, aiOrigin origin) override {
    const std::size_t from = origin == aiOrigin_CUR ? at_ : 0;
    if (offset > content_.size() - from) {
      return aiReturn_FAILURE;
    }
    at_ = origin == aiOrigin_END ? content_.size() - offset : from + offset;
    return aiReturn_SUCCESS;
  }
  std::size_t Tell() const override { return at_; }
  std::size_t FileSize() const override { return content_.size(); }
  void Flush() override {}

 private:
  const std::string& content_;
  std::size_t at_ = 0;
};

// The one file that there is: materials and pictures that it names are of no use here, and nothing is opened
// that nobody asked for.
class OneFile : public Assimp::IOSystem {
 public:
  OneFile(std::string name, const std::string& content) : name_(std::move(name)), content_(content) {}

  bool Exists(const char* file) const override { return file == name_; }
  char getOsSeparator() const override { return '/'; }
  Assimp::IOStream* Open(const char* file, const char*) override {
    return file == name_ ? new Content(content_) : nullptr;
  }
  void Close(Assimp::IOStream* stream) override { delete stream; }

 private:
  std::string name_;
  const std::string& content_;
};

[[noreturn]] void Fail(const std::string& file, const std::string& found, const std::string& expected) {
  throw FileError(file, 0, "found " + found + ", expected " + expected);
}

// Bounds what assimp makes of a text, line by line: each part of a mesh takes it a kilobyte, and each corner
// of a face some ten times what it takes in the file.
void CheckLines(const std::string& content, const std::string& file) {
  constexpr std::size_t kMaxParts = 100000;
  constexpr std::string_view kParts[] = {"solid", "o", "g", "usemtl", "mtllib"};
  constexpr std::string_view kBlank = " \t\r";
  std::size_t num_parts = 0;
  std::size_t num_words = 0;
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size());
    std::string_view line = std::string_view(content).substr(begin, end - begin);
    begin = end + 1;
    line.remove_prefix(std::min(line.find_first_not_of(kBlank), line.size()));
    const std::string_view first = line.substr(0, std::min(line.find_first_of(kBlank), line.size()));
    num_parts += std::find(std::begin(kParts), std::end(kParts), first) != std::end(kParts) ? 1 : 0;
    if (first.empty() || first[0] == 'v' || first[0] == '#') {
      continue;
    }
    for (std::size_t at = 0; at < line.size(); ++num_words) {
      at = std::min(line.find_first_not_of(kBlank, line.find_first_of(kBlank, at)), line.size());
    }
  }
  if (num_parts > kMaxParts) {
    Fail(file, "a mesh of more than " + std::to_string(kMaxParts) + " parts", "fewer");
  }
  if (num_words > 8 * kMaxMeshTriangles) {
    Fail(file, "faces of more than " + std::to_string(8 * kMaxMeshTriangles) + " words", "a coarser mesh");
  }
}

// Whether an STL file is binary: nothing but its size tells, for these too may begin with "solid".
bool IsBinaryStl(const std::string& content) {
  constexpr std::size_t kHeader = 80;
  constexpr std::size_t kStart = kHeader + sizeof(std::uint32_t);
  return content.size() >= kStart && static_cast<double>(content.size() - kStart) ==
                                         50.0 * LoadNumber(content.data() + kHeader, NumberType::kUint32);
}

// Only ASCII. Where `char` has no sign, assimp takes no STL file for text that has other letters in its first
// lines, such as a name may have; of names nothing is read.
std::string InAscii(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) > 127; }, '?');
  return text;
}

// Adds the mesh of a node, placed.
void AddMesh(const aiMesh& mesh, const aiMatrix4x4& transform, const std::string& file, Surface& surface) {
  const auto first = static_cast<std::uint32_t>(surface.vertices.size());
  if (surface.vertices.size() + mesh.mNumVertices > 8 * kMaxMeshTriangles) {
    Fail(file, "more than " + std::to_string(8 * kMaxMeshTriangles) + " vertices", "a coarser mesh");
  }
  for (unsigned int i = 0; i < mesh.mNumVertices; ++i) {
    const aiVector3D& vertex = mesh.mVertices[i];
    const auto row = [&](unsigned int r) {
      const auto entry = [&](unsigned int column) { return static_cast<double>(transform[r][column]); };
      return entry(0) * static_cast<double>(vertex.x) + entry(1) * static_cast<double>(vertex.y) +
             entry(2) * static_cast<double>(vertex.z) + entry(3);
    };
    surface.vertices.emplace_back(row(0), row(1), row(2));
  }
  std::vector<std::uint32_t> corners;
  for (unsigned int i = 0; i < mesh.mNumFaces; ++i) {
    const aiFace& face = mesh.mFaces[i];
    corners.clear();
    for (unsigned int k = 0; k < face.mNumIndices; ++k) {
      if (face.mIndices[k] >= mesh.mNumVertices) {
        Fail(file, "a face with a vertex that there is not", "indices of vertices");
      }
      corners.push_back(first + face.mIndices[k]);
    }
    if (corners.size() > 2 && surface.triangles.size() + corners.size() - 2 > kMaxMeshTriangles) {
      Fail(file, "more than " + std::to_string(kMaxMeshTriangles) + " triangles", "a coarser mesh");
    }
    surface.addPolygon(corners);
  }
}

}  // namespace

Surface ReadByAssimp(const std::string& whole, const std::string& file, const std::string& ending) {
  const bool is_dae = ending == "dae";
  const bool is_text_stl = ending == "stl" && !IsBinaryStl(whole);
  const std::string extract = is_dae ? ExtractDae(whole, file) : is_text_stl ? InAscii(whole) : "";
  const std::string& content = is_dae || is_text_stl ? extract : whole;
  if (!is_dae) {
    CheckLines(content, file);
  }
  const std::string name = "mesh." + ending;
  Assimp::Importer importer;
  importer.SetIOHandler(new OneFile(name, content));
  importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_IGNORE_UP_DIRECTION, true);
  const aiScene* const scene = importer.ReadFile(name, 0);
  if (scene == nullptr) {
    Fail(file, "what assimp refuses (" + Quoted(importer.GetErrorString()) + ")",
         "a mesh of the format that its ending says");
  }
  Surface surface;
  // Nodes that are placed next.
  std::vector<std::pair<const aiNode*, aiMatrix4x4>> next;
  if (scene->mRootNode != nullptr) {
    next.emplace_back(scene->mRootNode, scene->mRootNode->mTransformation);
  }
  while (!next.empty()) {
    const auto [node, transform] = next.back();
    next.pop_back();
    for (unsigned int i = 0; i < node->mNumMeshes; ++i) {
      AddMesh(*scene->mMeshes[node->mMeshes[i]], transform, file, surface);
    }
    for (unsigned int i = node->mNumChildren; i-- > 0;) {
      next.emplace_back(node->mChildren[i], transform * node->mChildren[i]->mTransformation);
    }
  }
  return surface;
}

}  // namespace kavo::formats

#else

namespace kavo::formats {

Surface ReadByAssimp(const std::string&, const std::string& file, const std::string& ending) {
  throw FileError(file, 0,
                  "found a mesh of the format " + Quoted(ending) +
                      ", which this build cannot read, expected .ply, or a Kavo built with assimp (install "
                      "libassimp-dev and configure with -DKAVO_WITH_ASSIMP=ON)");
}

}  // namespace kavo::formats

#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <optional>
#include <thread>

#include "kavo/formats/file_error.h"
#include "kavo/formats/link_cover_internal.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/formats/resource.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace

std::shared_ptr<const TriangleMesh> LinkCovers::readMesh(const std::string& file,
                                                         const Eigen::Vector3d& scale) {
  std::shared_ptr<const TriangleMesh>& mesh = meshes_[{file, {scale[0], scale[1], scale[2]}}];
  if (!mesh) {
    mesh = ReadMesh(file, scale);
  }
  return mesh;
}

CoverPart LinkCovers::partOf(const Urdf::Collision& collision, LoadedRobot::LinkShape& shape) {
  switch (collision.kind) {
    case Urdf::Collision::Kind::kSphere:
      return {SphereObstacle{collision.radius}, collision.pose};
    case Urdf::Collision::Kind::kBox:
      return {BoxObstacle{collision.size}, collision.pose};
    case Urdf::Collision::Kind::kCylinder:
      return {CylinderObstacle{collision.radius, collision.length}, collision.pose};
    case Urdf::Collision::Kind::kMesh:
      break;
  }
  const std::string file = FindResource(collision.mesh, urdf_.file, collision.line, options_.packages);
  const std::shared_ptr<const TriangleMesh> mesh = readMesh(file, collision.scale);
  shape.mesh_files.push_back(file);
  shape.num_triangles += mesh->triangles().size();
  return {MeshObstacle{mesh}, collision.pose};
}

void LinkCovers::add(std::size_t link, LoadedRobot::LinkShape shape) {
  const Stopwatch watch;
  Job& job = jobs_.emplace_back();
  job.cover.link = link;
  job.cover.shape = std::move(shape);
  for (const Urdf::Collision& collision : urdf_.links[link].collisions) {
    try {
      job.parts.push_back(partOf(collision, job.cover.shape));
    } catch (const FileError& fault) {
      if (!options_.allow_unreadable_meshes) {
        throw;
      }
      job.cover.is_whole = false;
      KAVO_LOG(LogLevel::kWarning) << fault.what() << "; link " << Quoted(urdf_.links[link].name)
                                   << " goes without it.";
    }
  }
  job.cover.shape.seconds = watch.seconds();
}

void LinkCovers::run(Job& job) const {
  if (job.parts.empty()) {
    return;
  }
  const Stopwatch watch;
  CoverOptions options;
  options.tolerance = options_.cover_tolerance.value_or(DefaultCoverTolerance(job.parts));
  options.max_spheres = options_.max_cover_spheres;
  std::optional<SphereCover> cover = cache_.find(job.parts, options);
  if (!cover) {
    cover = CoverBySpheres(job.parts, options);
    cache_.keep(job.parts, options, *cover);
  }
  LoadedRobot::LinkShape& shape = job.cover.shape;
  shape.source = LoadedRobot::LinkShape::Source::kCover;
  shape.tolerance = cover->tolerance;
  shape.bulge = cover->bulge;
  shape.seconds += watch.seconds();
  job.cover.spheres = std::move(cover->spheres);
}

std::vector<LinkCovers::Cover> LinkCovers::make() {
  // Each thread takes the next link; a fault waits until all are done.
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < jobs_.size(); i = next++) {
      run(jobs_[i]);
    }
  };
  const std::size_t num_threads =
      std::min<std::size_t>(jobs_.size(), std::max(1U, std::thread::hardware_concurrency()));
  std::vector<std::future<void>> others;
  for (std::size_t i = 1; i < num_threads; ++i) {
    others.push_back(std::async(std::launch::async, work));
  }
  work();
  for (std::future<void>& other : others) {
    other.get();
  }
  std::vector<Cover> covers;
  for (Job& job : jobs_) {
    for (const math::Sphere& sphere : job.cover.spheres) {
      if (!sphere.center.allFinite() || !std::isfinite(sphere.radius)) {
        const Urdf::Link& link = urdf_.links[job.cover.link];
        throw FileError(urdf_.file, link.collisions.front().line,
                        "found collision geometry of link " + Quoted(link.name) +
                            " that is too large or too far away, expected finite numbers");
      }
    }
    covers.push_back(std::move(job.cover));
  }
  return covers;
}

}  // namespace kavo::formats

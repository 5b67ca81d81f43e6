#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/cover_cache_internal.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/urdf_internal.h"
#include "kavo/world/shapes/sphere_cover.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

//! Covers the solids of links by spheres. Reads each mesh once.
class LinkCovers {
 public:
  //! Both must outlive this object.
  LinkCovers(const Urdf& urdf, const RobotFileOptions& options)
      : urdf_(urdf), options_(options), cache_(options.cover_cache) {}

  //! What covers a link.
  struct Cover {
    //! Of the links in the URDF.
    std::size_t link = 0;
    std::vector<math::Sphere> spheres;
    LoadedRobot::LinkShape shape;
    //! False if a mesh cannot be read and that is allowed: the other solids are covered.
    bool is_whole = true;
  };

  //! Takes up a link: reads its meshes.
  //! \param shape What is known of it so far.
  void add(std::size_t link, LoadedRobot::LinkShape shape);

  //! The covers of all links that were added, in their order; several at a time.
  std::vector<Cover> make();

 private:
  struct Job {
    std::vector<CoverPart> parts;
    Cover cover;
  };

  CoverPart partOf(const Urdf::Collision& collision, LoadedRobot::LinkShape& shape);
  std::shared_ptr<const TriangleMesh> readMesh(const std::string& file, const Eigen::Vector3d& scale);

  void run(Job& job) const;

  const Urdf& urdf_;
  const RobotFileOptions& options_;
  CoverCache cache_;
  std::vector<Job> jobs_;
  // By file and scale.
  std::map<std::pair<std::string, std::array<double, 3>>, std::shared_ptr<const TriangleMesh>> meshes_;
};

}  // namespace kavo::formats

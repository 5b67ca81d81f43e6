#pragma once

#include <map>
#include <string>

#include "kavo/util/export.h"

namespace kavo::formats {

//! Folders of packages, by the names of the packages.
using PackageFolders = std::map<std::string, std::string>;

//! The file that is meant by a name in another file, such as that of a mesh in a URDF. It exists and is no
//! folder.
//!
//! - `package://name/below/it`: below the folder of a package. If the package is among those given, that is
//!   its folder. Otherwise these are tried in order, and the first in which the file exists is taken:
//!   `share/name` of each prefix in `AMENT_PREFIX_PATH`; of each folder in `ROS_PACKAGE_PATH` itself if it
//!   has that name, a folder of that name in it, or one further below, the nearest first; the same, but not
//!   further below, of the folder of the file that names it and of each folder above that one.
//! - `file:///absolute`, and absolute names.
//! - Other names are relative to the folder of the file that names them.
//!
//! \param name As the file has it.
//! \param by File that has it, and the line there (0 where it is not known): for errors and as above.
//! Throws `FileError` for a file that is not found, with the places where it was looked for, for a scheme
//! that is none of these, and for a package whose name is empty, "." or "..", or a name that leads out of its
//! package.
KAVO_EXPORT std::string FindResource(const std::string& name, const std::string& by, int line = 0,
                                     const PackageFolders& packages = {});

}  // namespace kavo::formats

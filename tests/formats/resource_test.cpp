#include "kavo/formats/resource.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "tests/formats/files.h"
#include "tests/support/files.h"

namespace kavo::formats {
namespace {

TEST(Resource, WhereFilesAreLookedFor) {
  const testing::Folder folder;
  const std::string& root = folder.path();
  for (const char* file :
       {"prefix/share/arm/in_prefix", "prefix/share/arm/everywhere", "listed/arm/in_listed",
        "listed/arm/everywhere", "listed/stack/group/arm/in_nested", "listed/stack/group/arm/in_listed",
        "shop/arm/in_neighbour", "shop/arm/everywhere", "shop/robot/robots/robot.urdf", "shop/robot/own",
        "shop/robot/robot/twin", "given/mesh", "given/everywhere", "shop/robot/robots/.hidden/arm/secret"}) {
    folder.Write(file, "");
  }
  const std::string by = root + "/shop/robot/robots/robot.urdf";
  setenv("AMENT_PREFIX_PATH", (root + "/none:" + root + "/prefix").c_str(), 1);
  setenv("ROS_PACKAGE_PATH", (":" + root + "/listed/").c_str(), 1);
  const auto find = [&](const std::string& name, const PackageFolders& packages = {}) {
    std::string found;
    const std::string fault = testing::FileErrorOf([&] { found = FindResource(name, by, 7, packages); });
    // Names without the folder of this test.
    std::string text = found.empty() ? fault : found;
    for (std::size_t at = text.find(root); at != std::string::npos; at = text.find(root)) {
      text.erase(at, root.size() + 1);
    }
    return text;
  };
  const std::pair<std::string, std::string> found[] = {
      {"package://arm/everywhere", "prefix/share/arm/everywhere"},
      {"package://arm/in_prefix", "prefix/share/arm/in_prefix"},
      {"package://arm/in_listed", "listed/arm/in_listed"},
      {"package://arm/in_nested", "listed/stack/group/arm/in_nested"},
      {"package://arm/in_neighbour", "shop/arm/in_neighbour"},
      {"package://robot/./below/../own", "shop/robot/own"},
      {"package://robot/twin", "shop/robot/robot/twin"},
      {"../own", "shop/robot/robots/../own"},
      {"file://" + root + "/given/mesh", "given/mesh"},
      {root + "/given/mesh", "given/mesh"},
  };
  for (const auto& [name, file] : found) {
    EXPECT_EQ(find(name), file) << name;
  }
  const PackageFolders given = {{"arm", root + "/given"}};
  EXPECT_EQ(find("package://arm/everywhere", given), "given/everywhere");
  const std::string line = "shop/robot/robots/robot.urdf:7: found ";
  EXPECT_EQ(find("package://arm/in_listed", given),
            line +
                "\"package://arm/in_listed\", which is not in given, expected that file in the folder of "
                "package \"arm\"");
  EXPECT_EQ(find("../../other"), line +
                                     "\"../../other\", for which there is no file "
                                     "shop/robot/robots/../../other, expected the name of one that exists");
  const std::string missing = find("package://arm/secret");
  EXPECT_EQ(missing.find(line + "\"package://arm/secret\", which is not in none/share/arm, prefix/share/arm, "
                                "listed/arm, listed/stack/group/arm, shop/robot/robots/arm, "
                                "shop/robot/arm, shop/arm, "),
            0u)
      << missing;
  EXPECT_NE(missing.find(", /arm, expected the folder of package \"arm\" to be given (--package arm=DIR) or "
                         "among these"),
            std::string::npos)
      << missing;
  for (const char* name : {"package://", "package:///own", "package://./own", "package://../robot/own"}) {
    EXPECT_EQ(find(name), line + "\"" + name + "\", expected the name of a package behind package://");
  }
  for (const char* name : {"package://robot", "package://robot/", "package://robot/../robot/own",
                           "package://robot/below/../../robot/own"}) {
    EXPECT_EQ(find(name), line + "\"" + name + "\", expected a file in package \"robot\"");
  }
  EXPECT_EQ(find("http://arm/mesh"),
            line + "\"http://arm/mesh\", expected package://, file:// or the path of a file");
  unsetenv("AMENT_PREFIX_PATH");
  unsetenv("ROS_PACKAGE_PATH");
}

}  // namespace
}  // namespace kavo::formats

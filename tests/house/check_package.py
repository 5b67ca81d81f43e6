"""One version everywhere, and a package.xml that is in form and asks for all that the build looks for."""

import pathlib
import re
import sys
import xml.etree.ElementTree

SOURCE = pathlib.Path(sys.argv[1])
# By the name that find_package goes by: what package.xml calls it.
KEYS = {
    "CLI11": "cli11", "Eigen3": "eigen", "GTest": "gtest", "KavoAssimp": "assimp", "OpenSSL": "libssl-dev", "hwy": "libhwy-dev",
    "nlohmann_json": "nlohmann-json-dev", "tinyxml2": "tinyxml2", "urdfdom": "liburdfdom-dev", "yaml-cpp": "yaml-cpp",
}
# Of the compiler.
NOT_PACKAGES = {"Threads"}

build = (SOURCE / "CMakeLists.txt").read_text()
version = re.search(r"^  VERSION (\d+\.\d+)(\.\d+)$", build, re.MULTILINE)
minor, full = version[1], version[1] + version[2]

# Where it cannot be read from there: what is written, and what has to be.
places = [
    (name, found, minor)
    for name in ["README.md", "docs/install.md", "docs/tutorial.md", "tests/install/consumer/CMakeLists.txt"]
    for found in re.findall(r"find_package\(kavo (\S+) ", (SOURCE / name).read_text()) or [None]
]
places += [
    (name, (re.search(pattern, (SOURCE / name).read_text()) or [None, None])[1], full)
    for name, pattern in [
        ("package.xml", r"<version>(.*)</version>"),
        ("CHANGELOG.md", r"(?:This will be |## \[)(\d[\d.]*\d)"),
        ("docs/formats.md", r'"version": "(\d\S*)"'),
    ]
]
wrong = [f"{name} says version {found}, not {expected}" for name, found, expected in places if found != expected]

package = xml.etree.ElementTree.parse(SOURCE / "package.xml").getroot()
if (package.tag, package.get("format")) != ("package", "3"):
    wrong.append("package.xml is not of format 3")
for tag in ["name", "version", "description", "maintainer", "license"]:
    if len(package.findall(tag)) != 1 or not package.findtext(tag):
        wrong.append(f"package.xml has not one <{tag}>")
if package.findtext("export/build_type") != "cmake":
    wrong.append("package.xml does not build by cmake")

texts = [build] + [
    file.read_text() for folder in ["kavo", "apps/kavo", "tests"] for file in (SOURCE / folder).rglob("CMakeLists.txt")
    if "install" not in file.parts
]
found = {name for text in texts for name in re.findall(r"find_package\(([\w-]+)|kavo_depend\(\S+ (?:\"[^\"]*\"|\S+) (\w[\w-]*)", text)}
needed = {a or b for a, b in found} - NOT_PACKAGES
asked = {element.text for element in package if element.tag.endswith("depend")}
for name in sorted(needed):
    if KEYS.get(name) not in asked:
        wrong.append(f"package.xml does not ask for {name}" + (f" ({KEYS[name]})" if name in KEYS else ""))
for name in sorted(KEYS.keys() - needed):
    wrong.append(f"the build does not look for {name}, of which package.xml is checked to have {KEYS[name]}")

if wrong:
    sys.exit("\n".join(wrong))
print(f"Version {full} in {len(places)} places, {len(needed)} packages")

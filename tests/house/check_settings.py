#!/usr/bin/env python3
"""Holds the settings that docs/ explains against the headers: each of them with its default, and no others.

- The settings of a planner, as the table of `MotionPlanner::setParam` has them, are a table of docs/planners.md.
- Every struct of options or of a configuration in the folders below is a table that begins with its name: a row for
  each field, with the default as in the header, empty where there is none.

Called with the root of the repository.
"""

import pathlib
import re
import sys

FOLDERS = ("kinematics/interface", "world/shapes", "motion_planning/interface", "motion_planning/rrt",
           "motion_planning/trajectory", "motion_planning/util")
# Its fields are the settings of a planner.
OTHERWISE = {"MotionPlannerConfig"}


def rows_of(text, heading):
    """The first two cells of each row of the table that begins with a cell; None without one."""
    found = re.search(rf"^\| {re.escape(heading)} \|.*\n\|[-|]+\n((?:\|.*\n)*)", text, re.M)
    return found and {cells[1].strip(): cells[2].strip()
                      for cells in (row.split("|") for row in found[1].splitlines())}


def structs_of(header):
    """Of each struct of settings its fields, with their defaults."""
    for name, body in re.findall(r"^struct (?:KAVO_EXPORT )?(\w+(?:Options|Config)) \{\n(.*?)^\};", header,
                                 re.S | re.M):
        fields = re.findall(r"^  [\w:<>,()& ]+ (\w+)(?: = ([^;]*))?;", body, re.M)
        if name not in OTHERWISE:
            yield name, {f"`{field}`": default.split("::")[-1] for field, default in fields if field != "const"}


def main(root):
    rooms = root / "kavo"
    documents = "\n".join(file.read_text(encoding="utf-8") for file in sorted((root / "docs").glob("*.md")))
    facade = (rooms / "motion_planning/interface/motion_planner.h").read_text(encoding="utf-8")
    settings = re.findall(r"//! \| (\w+(?:/\w+)?) \| \w.* \| (.*) \|\n", facade)
    wanted = {"setting": {f"`{name}`": default for name, default in settings if name != "name"}}
    for folder in FOLDERS:
        for header in sorted((rooms / folder).glob("*.h")):
            if not header.stem.endswith("_internal"):
                for name, fields in structs_of(header.read_text(encoding="utf-8")):
                    wanted[f"`{name}`"] = fields
    wrong = []
    for heading, fields in wanted.items():
        told = rows_of(documents, heading)
        if told is None:
            wrong.append(f"no table of {heading}")
            continue
        for name in sorted(set(fields) | set(told)):
            if fields.get(name) != told.get(name):
                wrong.append(f"{heading}: {name} is {told.get(name)!r} in docs/ and {fields.get(name)!r} in the header")
    print("\n".join(wrong))
    print(f"{len(wanted)} tables with {sum(map(len, wanted.values()))} settings; {len(wrong)} wrong")
    # What finds nothing to hold the documents against would agree with anything.
    return 1 if wrong or len(wanted) < 8 or len(wanted["setting"]) < 20 else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))

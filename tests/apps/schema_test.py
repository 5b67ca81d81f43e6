"""Holds what the command writes against the schemas of the documentation.

Usage: schema_test.py KAVO SOURCE_DIR
"""

import copy
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

KAVO = sys.argv[1]
SOURCE = pathlib.Path(sys.argv[2])
SCHEMAS = {
    name: json.loads((SOURCE / "docs/schemas" / name).read_text())
    for name in ("plan.schema.json", "bench.schema.json")
}
# Objects whose keys are names that come from elsewhere.
FREE = {"settings", "held_joints"}


def make_validator(name):
    jsonschema.Draft202012Validator.check_schema(SCHEMAS[name])
    resolver = jsonschema.RefResolver(name, SCHEMAS[name], store=SCHEMAS)
    return jsonschema.Draft202012Validator(SCHEMAS[name], resolver=resolver)


PLAN = make_validator("plan.schema.json")
BENCH = make_validator("bench.schema.json")


def run(folder, arguments, status=0):
    document = folder / "out.json"
    document.unlink(missing_ok=True)
    result = subprocess.run(
        [KAVO, *arguments, "--json", str(document)], cwd=SOURCE, capture_output=True, text=True, timeout=300
    )
    assert result.returncode == status, (arguments, result.stderr)
    return json.loads(document.read_text())


def expect_valid(validator, document, what):
    error = next(validator.iter_errors(document), None)
    assert error is None, f"{what}: {list(error.absolute_path)}: {error.message[:500]}"


def objects_of(value):
    if isinstance(value, dict):
        yield value
    for key, element in value.items() if isinstance(value, dict) else enumerate(value):
        if isinstance(element, (dict, list)) and key not in FREE:
            yield from objects_of(element)


def expect_strict(validator, document, what):
    """No key may be missing, and none too many."""
    document = copy.deepcopy(document)
    for found in objects_of(document):
        for key in list(found):
            before = dict(found)
            del found[key]
            assert not validator.is_valid(document), f"{what}: {key} may be missing in {before}"
            found.clear()
            found.update(before)
        found["misspelt"] = 1
        assert not validator.is_valid(document), f"{what}: a key too many in {found}"
        del found["misspelt"]


def check_files(folder, arm):
    """Every file that is read is named with its hash."""
    triangle = (
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
        "element face 1\nproperty list uchar int vertex_index\nend_header\n0 0 0\n.1 0 0\n0 .1 0\n3 0 1 2\n"
    )
    for name in ("visual", "shelf", "held", "near"):
        (folder / f"{name}.ply").write_text(triangle)
    urdf = (SOURCE / arm[1]).read_text()
    visual = '<visual><geometry><mesh filename="visual.ply"/></geometry></visual>'
    (folder / "arm.urdf").write_text(urdf.replace('<link name="base">', f'<link name="base">{visual}'))
    (folder / "scene.yaml").write_text(
        "collision_objects: [{id: s, pose: {position: [3, 0, 0], orientation: [0, 0, 0, 1]},"
        " meshes: [{resource: shelf.ply}]}]\n"
    )
    (folder / "limits.yaml").write_text("joint_limits: {pan: {max_velocity: 1}}\n")
    (folder / "config.yaml").write_text("seed: 7\n")
    document = run(folder, [
        "plan", "--robot", str(folder / "arm.urdf"), *arm[2:], "--spheres", "examples/own_robot/spheres.yaml",
        "--scene", str(folder / "scene.yaml"), "--obstacle", str(folder / "near.ply") + "@3,1,0",
        "--attach", str(folder / "held.ply") + "@tool", "--config", str(folder / "config.yaml"),
        "--trajectory", str(folder / "t.csv"), "--joint-limits", str(folder / "limits.yaml"),
        "--start", "default", "--goal", "0.1,0,0.1,0,0",
    ])
    files = {pathlib.Path(file["name"]).name for file in document["files"] if len(file["sha256"]) == 64}
    assert files == {"arm.urdf", "arm.srdf", "spheres.yaml", "visual.ply", "scene.yaml", "shelf.ply", "near.ply",
                     "held.ply", "config.yaml", "limits.yaml"}, files


def main():
    record = json.loads((SOURCE / "tests/formats/data/plan.json").read_text())
    expect_valid(PLAN, record, "record")
    expect_strict(PLAN, record, "record")

    franka = ["plan", "--robot", "franka", "--scene", "examples/scene.yaml", "--start", "default"]
    arm = ["--robot", "examples/own_robot/arm.urdf", "--srdf", "examples/own_robot/arm.srdf", "--group", "arm"]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "cloud.xyz").write_text("".join(f"{i} 3 3\n" for i in range(30)))
        down = "0.4,0.3,0.5,1,0,0,0"
        cases = [
            # Stages, what is held, and a trajectory.
            (franka + ["--frame", "tool", "--pose", down, "--free-axis", "z", "--then", "line=0.4,0.3,0.45", "--then", "goal=default",
                       "--attach", "sphere:0.01@tool,0,0,0.05", "--obstacle", str(folder / "cloud.xyz"),
                       "--trajectory", str(folder / "t.csv"), "--trees", "50"], 0),
            # A position, and goals of which one is of no use.
            (franka + ["--frame", "tool", "--target", "0.5,0.2,0.4", "--planner", "jt_rrt"], 0),
            (franka + ["--frame", "tool", "--pose", "3,0,0,1,0,0,0", "--target", "0.4,0.2,0.4", "--position-tolerance", "0.01"], 0),
            # Nothing is found.
            (franka + ["--pose", "3,0,0,1,0,0,0"], 1),
            (franka + ["--goal", "0,1.7,0,-1.815,0,3.436,0.7854"], 1),
            (["plan", *arm, "--scene", "examples/own_robot/scene.yaml", "--request", "examples/own_robot/request.yaml"],
             0),
        ]
        for arguments, status in cases:
            document = run(folder, arguments, status)
            expect_valid(PLAN, document, arguments)
            assert document["arguments"][: len(arguments)] == arguments
        check_files(folder, arm)
        bench = ["bench", *arm, "--problems", "examples/own_robot"]
        document = run(folder, bench)
        expect_valid(BENCH, document, bench)
        expect_strict(BENCH, document, bench)
        bench += ["--keep-plans", "--compare", "bi_rrt,rrt_connect", "--set", "step_size=0.3"]
        expect_valid(BENCH, run(folder, bench), bench)


main()

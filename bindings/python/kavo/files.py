"""Robots, scenes and requests from files. The texts of the files are part of them, so that they can be pickled."""

import os
from typing import Any, Dict, Optional, Sequence, Tuple, Union

from kavo._kavo import Request, Robot, Scene

File = Union[str, "os.PathLike[str]"]


def _read(file: Optional[File]) -> Optional[Tuple[str, bytes]]:
    return None if file is None else _text(file)


def _text(file: File) -> Tuple[str, bytes]:
    # As it is: comments may be in whatever encoding.
    with open(file, "rb") as stream:
        # Meshes are found from there, wherever robot or scene go.
        return os.path.abspath(file), stream.read()


def load_robot(
    urdf: File,
    srdf: Optional[File] = None,
    spheres: Optional[File] = None,
    *,
    group: str = "",
    joints: Sequence[str] = (),
    joint_values: Optional[Dict[str, float]] = None,
    self_collision: Optional[bool] = None,
    cover: bool = True,
    cover_tolerance: Optional[float] = None,
    max_cover_spheres: Optional[int] = None,
    cover_cache: str = "",
    packages: Optional[Dict[str, str]] = None,
    allow_unreadable_meshes: bool = False,
) -> Robot:
    """The robot of a URDF file and the files beside it.

    It pickles with the texts of these files; meshes are read again from where they were.

    Args:
        urdf: Name of the file.
        srdf: Of the SRDF: groups, named configurations and pairs of links that may touch.
        spheres: Of the file of collision spheres (YAML), instead of those that cover the collision geometry.
        group: The c-space is the joints of this group of the SRDF; all joints that move unless given.
        joints: Or these.
        joint_values: Where other joints stand: radians or metres by name.
        self_collision: Whether links must not touch each other; unless given, only with an SRDF that disables pairs.
        cover: Whether collision geometry is covered by spheres.
        cover_tolerance: How far these may reach beyond it, metres; by the size of each link unless given.
        max_cover_spheres: For each link.
        cover_cache: Folder in which covers are kept from one time to the next.
        packages: Folders of packages by name, for meshes whose names begin with "package://".
        allow_unreadable_meshes: Whether a mesh that cannot be read is left out, with a warning.

    Raises:
        FileError: For whatever is wrong in a file, and for names that the files do not know.
        OSError: For a file that cannot be opened.
    """
    options: Dict[str, Any] = {
        "group": group,
        "joints": list(joints),
        "joint_values": dict(joint_values or {}),
        "self_collision": bool(self_collision),
        "self_collision_if_listed": self_collision is None,
        "cover": cover,
        "cover_tolerance": cover_tolerance,
        "max_cover_spheres": max_cover_spheres,
        "cover_cache": cover_cache,
        "packages": dict(packages or {}),
        "allow_unreadable_meshes": allow_unreadable_meshes,
    }
    return Robot._parse(_read(urdf), _read(srdf), _read(spheres), options)


def load_scene(file: File, *, packages: Optional[Dict[str, str]] = None) -> Scene:
    """Reads a planning scene, YAML or text.

    It pickles with its text; meshes that it names are read again from where they were.

    Args:
        file: Its name.
        packages: Folders of packages by name, for meshes whose names begin with "package://".

    Raises:
        FileError: For a file that does not have this form.
        OSError: For one that cannot be opened.
    """
    return Scene._parse(_text(file), dict(packages or {}))


def load_request(file: File, *, packages: Optional[Dict[str, str]] = None) -> Request:
    """Reads a motion-plan request, YAML. What the robot is said to hold is not attached by it: see `Request.attached`.

    It pickles with its text; meshes that it names are read again from where they were.

    Args:
        file: Its name.
        packages: Folders of packages by name, for meshes whose names begin with "package://".

    Raises:
        FileError: For a file that does not have this form.
        OSError: For one that cannot be opened.
    """
    return Request._parse(_text(file), dict(packages or {}))

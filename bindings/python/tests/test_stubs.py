"""The stub of the extension module against the module itself."""

import ast
import re
from pathlib import Path

import kavo
from kavo import _kavo

STUB = ast.parse((Path(kavo.__file__).parent / "_kavo.pyi").read_text())
# What Python itself adds.
OWN = {"__init__", "__len__", "__contains__", "__matmul__"}


def parameters_of_stub(function):
    arguments = function.args
    names = [a.arg for a in arguments.posonlyargs + arguments.args + arguments.kwonlyargs]
    return set(names) - {"self"} | ({"kwargs"} if arguments.kwarg else set())


def parameters_of_module(function):
    names = set()
    for line in function.__doc__.splitlines():
        if signature := re.match(r"(?:\d+\. )?\w+\((.*)\) ->", line):
            names |= set(re.findall(r"(?:(?:^|, )(?=\w+: )|\*\*)(\w+)", signature[1]))
    return {name for name in names if name != "self" and not name.startswith("arg")}


def members(of):
    return {name for name in vars(of) if not name.startswith("__") or name in OWN}


def check(stub_body, of, where):
    functions = {}
    for node in stub_body:
        if isinstance(node, ast.FunctionDef):
            functions.setdefault(node.name, []).append(node)
    for name, overloads in functions.items():
        member = vars(of)[name]
        if isinstance(member, property):
            continue
        function = getattr(of, name)
        expected = set().union(*(parameters_of_stub(overload) for overload in overloads))
        if name != "__contains__":
            assert parameters_of_module(function) == expected, f"{where}{name}"
    return set(functions)


def test_the_stub_has_what_the_module_has():
    classes = {node.name: node for node in STUB.body if isinstance(node, ast.ClassDef)}
    known = check(STUB.body, _kavo, "") | set(classes)
    assert {name for name in vars(_kavo) if not name.startswith("__")} == known
    for name, node in classes.items():
        of = getattr(_kavo, name)
        without_constructor = members(of) - ({"__init__"} if "__init__" not in ast.unparse(node) else set())
        assert check(node.body, of, name + ".") == without_constructor, name

"""batches.py <build directory> <log> [source...]: what scripts/tidy does once that directory is configured.

Most of the time of clang-tidy goes into the headers of a source. So a batch of sources that are compiled with equal flags is
looked at as one translation unit, which includes them all. Sources that do not compile together, because of names that each has
to itself, are parted until they do, at the last into batches of one. Only there does clang-tidy find declarations by `using`, and
aliases of namespaces, that nothing uses (misc-unused-using-decls, misc-unused-alias-decls): name a source to have it looked for.
"""

import collections
import concurrent.futures
import json
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path
from typing import Dict, Iterator, List, NamedTuple

SOURCES_PER_BATCH = 12
# What many sources define, each for itself; in a batch each gets a name of its own.
COMMON_NAMES = ("kFile", "LLVMFuzzerTestOneInput")
# Includes its own source again for each kind of vectors, and leaves macros behind that say so.
ALONE = re.compile(r"^#include .hwy/foreach_target\.h.", re.MULTILINE)
FINDING = re.compile(r"^.*: (?:warning|error): .*$", re.MULTILINE)


class Batch(NamedTuple):
    compiler: List[str]  # with its flags
    sources: List[str]


def batches(build: Path, named: List[str]) -> Iterator[Batch]:
    """Those of the sources named, or of all that are not made by the build itself."""
    compilers: Dict[str, List[str]] = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        command = shlex.split(entry["command"])
        if not entry["file"].startswith(f"{build}/"):
            compilers.setdefault(entry["file"], command[:command.index("-o")])
    unknown = [source for source in named if source not in compilers]
    if unknown:
        sys.exit(f"Not compiled by the preset `tidy`: {' '.join(unknown)}")

    alike = collections.defaultdict(list)
    for source in named or compilers:
        if ALONE.search(Path(source).read_text()):
            yield Batch(compilers[source], [source])
        else:
            alike[tuple(compilers[source])].append(source)
    for compiler, sources in alike.items():
        for first in range(0, len(sources), SOURCES_PER_BATCH):
            yield Batch(list(compiler), sources[first:first + SOURCES_PER_BATCH])


def write_unit(directory: Path, batch: Batch) -> str:
    """The translation unit that includes the sources of a batch; of one source, that itself."""
    if len(batch.sources) == 1:
        return batch.sources[0]
    lines = []
    for number, source in enumerate(batch.sources):
        lines += [f"#define {name} {name}_{number}" for name in COMMON_NAMES]
        lines.append(f'#include "{source}"')
        lines += [f"#undef {name}" for name in COMMON_NAMES]
    name = re.sub(r"\W", "_", os.path.relpath(batch.sources[0]))
    # Of other files, clang's analyser passes over the functions in what they include.
    unit = directory / f"UnifiedSource_{name}_and_{len(batch.sources) - 1}.cpp"
    unit.write_text("\n".join(lines) + "\n")
    return str(unit)


def part(batch: Batch, unit: str) -> List[Batch]:
    """Batches of the same sources: nothing but this one if it compiles, else with those apart that are at fault."""
    sources = batch.sources
    if len(sources) == 1:
        return [batch]
    compiled = subprocess.run([*batch.compiler, "-fsyntax-only", "-w", "-ferror-limit=0", unit], capture_output=True, text=True)
    if compiled.returncode == 0:
        return [batch]
    for kind in ("(?:fatal )?error", "note"):
        found = set(re.findall(rf"^(/[^:]*):\d+:\d+: {kind}: ", compiled.stderr, re.MULTILINE))
        apart = [source for source in sources if source in found]
        if 0 < len(apart) < len(sources):
            break
    else:
        apart = sources[:len(sources) // 2]
    return [Batch(batch.compiler, some) for some in ([source for source in sources if source not in apart], apart)]


def look_at(directory: Path, batch: Batch) -> List[str]:
    """What clang-tidy writes about each part of a batch, where that is a finding; whatever does not compile is one."""
    unit = write_unit(directory, batch)
    parts = part(batch, unit)
    if len(parts) > 1:
        return [output for each in parts for output in look_at(directory, each)]
    # A batch consists of sources that are included.
    checks = ["--checks=-bugprone-suspicious-include"] if len(batch.sources) > 1 else []
    tidy = subprocess.run(["clang-tidy", "--quiet", "--warnings-as-errors=*", *checks, unit, "--", *batch.compiler[1:]],
                          capture_output=True, text=True)
    return [tidy.stdout + tidy.stderr] if tidy.returncode != 0 else []


def main(build: str, log: str, *named: str) -> None:
    directory = Path(build, "batches").resolve()
    directory.mkdir(exist_ok=True)
    work = list(batches(directory.parent, [os.path.abspath(source) for source in named]))
    count = sum(len(batch.sources) for batch in work)
    print(f"Looking at {count} sources", flush=True)
    # Large ones first, so that no core is left with one at the end.
    work.sort(key=lambda batch: -len(batch.sources))
    failed = False
    findings = set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool, open(log, "w") as log_file:
        for done in concurrent.futures.as_completed([pool.submit(look_at, directory, batch) for batch in work]):
            for output in done.result():
                failed = True
                print(output, file=log_file, flush=True)
                # A header is seen by many; without a finding, the whole output tells what went wrong.
                for finding in FINDING.findall(output) or [output]:
                    if finding not in findings:
                        findings.add(finding)
                        print(finding, file=sys.stderr, flush=True)
    if failed:
        sys.exit(f"Failed: tidy (log in {log})")
    print(f"clang-tidy has nothing to say about {count} sources")


main(*sys.argv[1:])

#!/usr/bin/env python3
"""Follows the links of all documents within the repository: the file is there, and so is the heading that is named.

Called with the root of the repository.
"""

import pathlib
import re
import sys


def prose(file):
    """A document without its blocks of code."""
    return re.sub(r"^```.*?^```$", "", file.read_text(encoding="utf-8"), flags=re.S | re.M)


def anchors(file):
    headings = re.findall(r"^#+ (.*)$", prose(file), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def main(root):
    num_links, wrong = 0, []
    for file in sorted([*root.glob("*.md"), *root.glob("docs/*.md")]):
        for link in re.findall(r"\]\((?!https?:)([^)\s]+)\)", prose(file)):
            num_links += 1
            path, _, anchor = link.partition("#")
            target = file.parent / path if path else file
            if not target.exists() or (anchor and anchor not in anchors(target)):
                wrong.append(f"{file.relative_to(root)}: {link}")
    print("\n".join(wrong))
    print(f"{num_links} links; {len(wrong)} lead nowhere")
    return 1 if wrong or num_links < 50 else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))

#!/usr/bin/env python3
"""Holds docs/troubleshooting.md against the messages in the sources: each is in both, or the check fails.

A message is known by its constant parts, with `…` between them where a value stands. Two kinds are told apart:

- what a statement carries (`KAVO_CHECK`, `KAVO_LOG`, `throw`, `fail`): the document has the whole of it. A check
  without text is known by its condition.
- what is put together elsewhere (verdicts, reasons, notes), but for the Python module: every literal of at least two
  words is part of a message of the document, unless it stands in a statement that describes options or settings.

In the document, a line that begins with "- `" is a message. Each is made of such constant parts and of nothing else.

Called with the root of the repository.
"""

import itertools
import pathlib
import re
import sys

TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/|\#[^\n]*|R"(?P<mark>\w*)\((?P<raw>.*?)\)(?P=mark)\""""
    r"""|"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)+'|[A-Za-z_]\w*|\d[\w.']*|<<|>>|::|->|\s+|.""", re.S)
CARRIERS = {"KAVO_CHECK", "KAVO_LOG", "throw", "fail", "Fail"}
# Beginnings of statements that describe options and settings.
DESCRIBING = {"add_option", "add_option_function", "add_flag", "add_flag_function", "add_flag_callback",
              "add_subcommand", "add", "add_goal", "add_tolerance", "app", "footer", "kRows", "static_assert"}
# Those that go on behind the bracket of a call.
STATEMENTS = {"KAVO_CHECK", "KAVO_LOG", "throw", "kRows"}
# What these print is no message: manual page and completion, facts about a robot, titles of pages.
FACTS = {"apps/kavo/generate.cpp", "apps/kavo/info.cpp", "apps/kavo/page.cpp"}
# Literals that have no other words than one and these stand for a value in a message: "the goal", "a number".
SMALL_WORDS = set("a an the of at in is on for to one with by m and or their from they it its as kavo".split())
GAP = "\u2026"


class Token:
    def __init__(self, text, line, begin, end, literal=None):
        self.text, self.line, self.begin, self.end, self.literal = text, line, begin, end, literal


def unescape(text):
    return re.sub(r"\\(.)", lambda match: {"n": "\n", "t": " "}.get(match[1], match[1]), text)


def tokens_of(source):
    tokens, line = [], 1
    for match in TOKEN.finditer(source):
        text = match.group(0)
        if not (text.isspace() or text.startswith(("//", "/*", "#"))):
            literal = None
            if match["raw"] is not None:
                literal = match["raw"]
            elif text[0] == '"':
                literal = unescape(text[1:-1])
            if literal is not None and tokens and tokens[-1].literal is not None:
                tokens[-1].literal += literal
                tokens[-1].end = match.end()
            else:
                tokens.append(Token(text, line, match.start(), match.end(), literal))
        line += text.count("\n")
    return tokens


def split(tokens, separators):
    """Parts of an expression between separators that stand in no bracket."""
    parts, depth = [[]], 0
    for token in tokens:
        if token.literal is None:
            depth += (token.text in "([{") - (token.text in ")]}")
        if depth == 0 and token.literal is None and token.text in separators:
            parts.append([])
        else:
            parts[-1].append(token)
    return parts


def texts(tokens, constants):
    """All that an expression of text may say: `a + (b ? "c" : "d")` gives two."""
    condition, *branches = split(tokens, {"?"})
    if branches:
        rest = tokens[len(condition) + 1:]
        yes = split(rest, {":"})[0]
        return texts(yes, constants) + texts(rest[len(yes) + 1:], constants)
    operands = split(tokens, {"+", "<<"})
    if len(operands) > 1:
        choices = [texts(operand, constants) for operand in operands if operand]
        return sorted({"".join(parts) for parts in itertools.product(*choices)})
    if len(tokens) == 1 and tokens[0].literal is not None:
        return [tokens[0].literal]
    if len(tokens) == 1 and tokens[0].text in constants:
        return [constants[tokens[0].text]]
    if tokens and tokens[0].text == "(" and tokens[-1].text == ")":
        return texts(tokens[1:-1], constants)
    if [token.text for token in tokens[:4]] == ["std", "::", "string", "("] and tokens[-1].text == ")":
        return texts(tokens[4:-1], constants)
    return [GAP]


def normal(text):
    text = re.sub(r"\s+", " ", text).strip()
    return re.sub(f"{GAP}( ?{GAP})+", GAP, text)


def statement(tokens, begin):
    """From `begin` to where the statement, or the bracket that it stands in, ends."""
    depth, end = 0, begin
    while end < len(tokens):
        token = tokens[end]
        if token.literal is None:
            depth += (token.text in "([{") - (token.text in ")]}")
            if depth < 0 or (depth == 0 and token.text == ";"):
                break
        end += 1
    return tokens[begin:end]


def arguments(tokens):
    """Those of the call that `tokens` begin with, and what follows it."""
    open_at = next(i for i, token in enumerate(tokens) if token.text in ("(", "{"))
    depth = 0
    for i in range(open_at, len(tokens)):
        if tokens[i].literal is None:
            depth += (tokens[i].text in "([{") - (tokens[i].text in ")]}")
        if depth == 0:
            return split(tokens[open_at + 1:i], {","}), tokens[i + 1:]
    return [], []


def carried(tokens, source, constants, is_command):
    """The messages of a statement that begins with a carrier."""
    kind = tokens[0].text
    if not any(token.text in ("(", "{") for token in tokens):
        return []
    args, rest = arguments(tokens)
    if kind == "KAVO_CHECK":
        if rest:
            return texts(rest[1:], constants)
        return ["[" + source[args[0][0].begin:args[0][-1].end] + "]"]
    if kind == "KAVO_LOG":
        return texts(rest[1:], constants)
    if kind == "throw" and tokens[1].text in ("fail", "Fail"):
        return carried(tokens[1:], source, constants, is_command)
    if kind == "throw":
        return texts(args[-1], constants) if args[-1] else []
    if any(token.text == "const" for arg in args for token in arg):
        return []
    said = [texts(arg, constants) for arg in args if arg]
    if is_command:
        return [text for alternatives in said for text in alternatives]
    # The last is what was expected, the one before, if any, what was found instead.
    founds = said[-2] if len(said) > 1 else [GAP]
    return [f"found {found if found[:1].isalnum() else GAP + found}, expected {expected}"
            for found in founds for expected in said[-1]]


def constants_of(tokens):
    """Names of texts: kName[] = "text", *kName = "text"."""
    found = {}
    for i, token in enumerate(tokens):
        if re.fullmatch(r"k[A-Z]\w*", token.text) and token.literal is None:
            j = i + 1 + 2 * ([t.text for t in tokens[i + 1:i + 3]] == ["[", "]"])
            if j + 1 < len(tokens) and tokens[j].text == "=" and tokens[j + 1].literal is not None \
                    and tokens[j + 2].text == ";":
                found[token.text] = tokens[j + 1].literal
    return found


def is_telling(text):
    words = [word.strip("`'\".,:;()[]") for word in text.split()]
    return sum(re.search("[A-Za-z]{2}", word) is not None and "_" not in word
               and word.lower() not in SMALL_WORDS for word in words) > 1


def stripped(text):
    return normal(text).strip(" '\"[](),;:.")


def call(tokens, begin):
    """The call that begins at `begin`, to its closing bracket."""
    depth = 0
    while tokens[begin + 1].text != "(":
        begin += 1
    for end in range(begin + 1, len(tokens)):
        if tokens[end].literal is None:
            depth += (tokens[end].text in "([{") - (tokens[end].text in ")]}")
        if depth == 0:
            return tokens[begin:end + 1]
    return []


def messages_of(root):
    """What statements carry and what literals elsewhere tell (both with their places), and all such literals."""
    sources = {}
    for folder in ("kavo", "apps/kavo", "bindings/python"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in (".cpp", ".h"):
                text = file.read_text(encoding="utf-8")
                sources[file.relative_to(root).as_posix()] = (text, tokens_of(text))
    shared = {}
    for _, tokens in sources.values():
        shared.update(constants_of(tokens))
    whole, telling, literals = {}, {}, set()
    for name, (text, tokens) in sources.items():
        constants = {**shared, **constants_of(tokens)}
        # Most texts of the module are docstrings.
        is_module = name.startswith("bindings/")
        known = set()
        for i, token in enumerate(tokens[:-1]):
            beginnings = CARRIERS if is_module else CARRIERS | DESCRIBING
            if token.literal is not None or token.text not in beginnings or id(token) in known:
                continue
            is_call = tokens[i + 1].text == "(" or (token.text in DESCRIBING and tokens[i + 1].text == "<")
            if is_call or token.text in STATEMENTS:
                inside = statement(tokens, i) if token.text in STATEMENTS else call(tokens, i)
                known.update(id(part) for part in inside)
                if token.text in CARRIERS:
                    for message in map(normal, carried(inside, text, constants, name.startswith("apps/"))):
                        if re.search(r"[A-Za-z]{2}", message):
                            whole.setdefault(message, f"{name}:{token.line}")
        for token in tokens:
            is_elsewhere = token.literal is not None and id(token) not in known
            for line in token.literal.split("\n") if is_elsewhere else ():
                literals.add(stripped(line))
                if name not in FACTS and not is_module and is_telling(line):
                    telling.setdefault(stripped(line), f"{name}:{token.line}")
    return whole, telling, literals


def documented(root):
    """The messages of the document, each with its line."""
    found = {}
    text = (root / "docs/troubleshooting.md").read_text(encoding="utf-8")
    for line, content in enumerate(text.split("\n"), 1):
        match = re.fullmatch(r"- (`+)(.*)\1", content)
        if match:
            found.setdefault(normal(match[2]), line)
    return found


def is_made_of(message, literals):
    """Whether all words of a message stand in literals, none of them put together from pieces."""
    is_covered = [not char.isalnum() for char in message]
    for literal in literals:
        begin = message.find(literal) if literal else -1
        while begin >= 0:
            end = begin + len(literal)
            if not message[max(begin - 1, 0):begin + 1].isalnum() or begin == 0:
                if not message[end - 1:end + 1].isalnum() or end == len(message):
                    is_covered[begin:end] = [True] * (end - begin)
            begin = message.find(literal, begin + 1)
    return all(is_covered)


def main(root):
    whole, telling, literals = messages_of(root)
    told = documented(root)
    wrong = [f"{place}: not in docs/troubleshooting.md: {message}" for message, place in whole.items()
             if message not in told]
    everything = "\n".join(told)
    wrong += [f"{place}: not in docs/troubleshooting.md: {literal}" for literal, place in telling.items()
              if literal not in everything]
    wrong += [f"docs/troubleshooting.md:{line}: not in the sources: {message}" for message, line in told.items()
              if message not in whole and not is_made_of(message, literals)]
    print("\n".join(wrong))
    print(f"{len(whole)} messages of statements, {len(telling)} other texts, {len(told)} in the document; "
          f"{len(wrong)} wrong")
    # An empty side would agree with anything.
    return 1 if wrong or len(whole) < 100 or len(telling) < 100 else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))

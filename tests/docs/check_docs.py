#!/usr/bin/env python3
"""Guards that the C++ in the documentation is true.

    check_docs.py ROOT COMPILER [FLAG...]

Every block of README.md, CONTRIBUTING.md and docs/ that is fenced as cpp must compile, with the
flags that are given and ROOT/include. What a block is, the line before its fence says:

    <!-- examples/NAME.cpp -->       a copy of that file, which is built with the tests
    <!-- fragment: PARAMETERS -->    part of a function that has these parameters
    (anything else)                  a file of its own

Where a page says of an example how short it is, "[a player](examples/play.cpp) at most 10", the
body of its main has no more lines: those between the brace that opens and the one that closes it,
blank ones apart.

A file of its own needs all its includes; a fragment may count on those of FRAGMENT_INCLUDES.
"""

import collections
import pathlib
import re
import subprocess
import sys
import tempfile

FRAGMENT_INCLUDES = ["kestrel/kestrel.h", "atomic", "iostream", "memory", "string", "vector"]

Block = collections.namedtuple("Block", "place line mark text")

MARK = re.compile(r"^<!-- (.*) -->$")
LENGTH = re.compile(r"\((examples/\w+\.cpp)\)[^()]*?\bat most (\d+)")
MAIN = re.compile(r"^int main\(.*\{$")
FENCE = re.compile(r"^(```+) *(\w*)")


def pages(root):
    return [file for file in (root / "README.md", root / "CONTRIBUTING.md",
                              *sorted((root / "docs").glob("*.md"))) if file.exists()]


def blocks(root):
    """The C++ blocks of all pages; `line` is that of the block's first line."""
    for page in pages(root):
        fence, before, kept, start = None, "", [], 0
        for number, line in enumerate(page.read_text(encoding="utf-8").split("\n"), 1):
            opening = FENCE.match(line)
            if fence and line.strip() == fence[0]:
                if fence[1] == "cpp":
                    mark = MARK.match(before)
                    yield Block(page.relative_to(root).as_posix(), start,
                                mark.group(1) if mark else "", "\n".join(kept) + "\n")
                fence, before = None, ""
            elif fence:
                kept.append(line)
            elif opening:
                fence, kept, start = opening.groups(), [], number + 1
            elif line:
                before = line


def located(block):
    return f'#line {block.line} "{block.place}"\n{block.text}'


def fragment_file(fragments):
    """One file of all fragments, a function each."""
    text = "".join(f"#include <{name}>\n" for name in FRAGMENT_INCLUDES)
    for number, (parameters, block) in enumerate(fragments):
        # Where a fragment does not answer anything, the function does.
        text += (f"int fragment{number}({parameters});\n"
                 f"int fragment{number}({parameters}) {{\n{located(block)}return 0;\n}}\n")
    return text


def sort_blocks(root):
    """(problems, files to compile, how many copies there are)."""
    problems, files, fragments, copies = [], [], [], 0
    for block in blocks(root):
        where = f"{block.place}:{block.line}"
        kind, _, rest = block.mark.partition(": ")
        if block.mark.startswith("examples/"):
            copies += 1
            file = root / block.mark
            if not file.exists() or file.read_text(encoding="utf-8") != block.text:
                problems.append(f"{where}: is not what {block.mark} holds")
        elif kind in ("fragment", "fragment:"):
            fragments.append((rest, block))
        else:
            files.append((where, located(block)))
    if fragments:
        files.append(("fragments", fragment_file(fragments)))
    return problems, files, copies


def check(root, compiler):
    """(problems, how many files were compiled, how many copies compared)."""
    root = pathlib.Path(root)
    problems, files, copies = sort_blocks(root)
    with tempfile.TemporaryDirectory() as folder:
        running = []
        for number, (where, text) in enumerate(files):
            file = pathlib.Path(folder) / f"{number}.cpp"
            file.write_text(text, encoding="utf-8")
            command = [*compiler, "-fsyntax-only", f"-I{root / 'include'}", str(file)]
            running.append((where, subprocess.Popen(command, stderr=subprocess.PIPE, text=True)))
        for where, process in running:
            _, messages = process.communicate()
            if process.returncode != 0:
                problems.append(f"{where}: does not compile\n{messages}")
    return problems, len(files), copies


def body_length(text):
    """How many lines the body of main has, blank ones apart; None without a main."""
    lines = iter(text.split("\n"))
    if not any(MAIN.match(line) for line in lines):
        return None
    length = 0
    for line in lines:
        # The body's own lines are indented, or begin what catches for all of it.
        if line == "}":
            break
        length += line != ""
    return length


def check_lengths(root):
    """(problems, how many lengths were compared)."""
    root = pathlib.Path(root)
    problems, lengths = [], 0
    for page in pages(root):
        for name, most in LENGTH.findall(page.read_text(encoding="utf-8")):
            lengths += 1
            file = root / name
            length = body_length(file.read_text(encoding="utf-8")) if file.exists() else None
            where = page.relative_to(root).as_posix()
            if length is None:
                problems.append(f"{where}: {name} has no main")
            elif length > int(most):
                problems.append(f"{where}: {name} has {length} lines, and at most {most} are said")
    return problems, lengths


def main():
    problems, compiled, copies = check(sys.argv[1], sys.argv[2:])
    too_long, lengths = check_lengths(sys.argv[1])
    problems += too_long
    if not problems and not (compiled and copies and lengths):
        problems = ["there is no C++ in the documentation: is this the project's root?"]
    print("\n".join(problems) or
          f"{compiled} files compiled, {copies} copies and {lengths} lengths compared")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

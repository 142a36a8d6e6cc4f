#!/usr/bin/env python3
"""Guards how the folders of the project hang together.

    check_structure.py ROOT                    every rule below, on the tree at ROOT
    check_structure.py ROOT --write-umbrella   writes include/kestrel/kestrel.h anew

Rules, by what a file includes:
- platform/ knows nothing of the engine, nor of support/;
- support/ knows platform/ and the engine's plain records;
- the folders of the engine know each other by public headers only, and beside these the private
  headers of their own folder, of support/ and of platform/;
- tools/ is a host: public headers, its own headers, foreign libraries;
- a public header includes public headers of its own layer or below and the standard library, so
  that a host needs no foreign header.

Then: kestrel.h includes every public header, and a public class that is implemented in a .cpp, or a
public function, is marked KESTREL_API.
"""

import pathlib
import re
import sys

ENGINE = ["media", "sources", "output", "effects", "dvd", "composition", "audio"]
LAYERS = {"platform": 0, "support": 1, **{folder: 2 for folder in ENGINE}, "tools": 3}

# The engine's plain records, which support/ speaks, too.
RECORDS = {"LMFFFormat.h"}

# Private headers that a folder may include, beside its own.
PRIVATE = {"platform": [], "support": ["platform"], "tools": []}
PRIVATE.update({folder: ["support", "platform"] for folder in ENGINE})

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def includes(file):
    """(system?, name) of every include directive of a file."""
    text = file.read_text(encoding="utf-8")
    return [(kind == "<", name) for kind, name in INCLUDE.findall(text)]


class Tree:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.public = sorted((self.root / "include/kestrel").glob("*.h"))
        self.sources = {}  # folder -> its files
        for folder in LAYERS:
            files = (self.root / folder).rglob("*")
            self.sources[folder] = sorted(f for f in files if f.suffix in (".h", ".cpp"))
        self.home = {}  # public header's name -> folder that implements it
        for folder, files in self.sources.items():
            for file in files:
                if file.suffix == ".cpp":
                    self.home.setdefault(file.stem + ".h", folder)

    def name(self, file):
        return file.relative_to(self.root).as_posix()

    def layer_of_public(self, name):
        """The layer of a public header: its implementation's, else the highest that it includes."""
        return self._layer_of_public(name, frozenset())

    def _layer_of_public(self, name, seen):
        if name in RECORDS:
            return LAYERS["support"]
        if name in self.home:
            return LAYERS[self.home[name]]
        file = self.root / "include/kestrel" / name
        if name in seen or not file.exists():
            return 0
        below = [n[len("kestrel/"):] for _, n in includes(file) if n.startswith("kestrel/")]
        return max((self._layer_of_public(n, seen | {name}) for n in below), default=0)


def direction_of_sources(tree):
    for folder, files in tree.sources.items():
        for file in files:
            for system, name in includes(file):
                problem = problem_of_include(tree, folder, system, name)
                if problem:
                    yield f"{tree.name(file)}: includes {name}: {problem}"


def problem_of_include(tree, folder, system, name):
    top, _, rest = name.partition("/")
    if top == "kestrel":
        if not system:
            return "public headers go in <>"
        if tree.layer_of_public(rest) > LAYERS[folder]:
            return f"{folder}/ may not know {tree.home.get(rest, 'the engine')}/"
        return None
    if system:
        return None
    if not rest and folder != "tools":
        return "private headers are included by their path from the project's root"
    if rest and top != folder and top not in PRIVATE[folder]:
        return f"{folder}/ may not include private headers of {top}/"
    return None


def direction_of_public_headers(tree):
    for file in tree.public:
        own_layer = tree.layer_of_public(file.name)
        for system, name in includes(file):
            if system and name.startswith("kestrel/"):
                included = name[len("kestrel/"):]
                if file.name != "kestrel.h" and tree.layer_of_public(included) > own_layer:
                    yield f"{tree.name(file)}: includes {name}, which lies above it"
            elif not system or "/" in name or "." in name:
                yield f"{tree.name(file)}: includes {name}, which is neither public nor standard"


def umbrella_text(tree):
    names = [f.name for f in tree.public if f.name != "kestrel.h"]
    lines = [f"#include <kestrel/{name}>" for name in sorted(names)]
    return "\n".join(["#pragma once", "", "// Every public header of the engine.", ""] + lines) + "\n"


def umbrella(tree):
    file = tree.root / "include/kestrel/kestrel.h"
    listed = [name for _, name in includes(file)] if file.exists() else []
    for header in tree.public:
        if header.name != "kestrel.h" and f"kestrel/{header.name}" not in listed:
            yield f"include/kestrel/kestrel.h: lacks {header.name}"


def declarations(text):
    """(head, has a body?) of everything that a header declares outside of classes."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*|^\s*#(?:[^\n]*\\\n)*[^\n]*", "", text,
                  flags=re.DOTALL | re.MULTILINE)
    text = re.sub(r'\bnamespace [\w:]+ *\{|\bextern "C" *\{', "", text)
    head, depth = "", 0
    for char in text:
        if depth == 0 and char in ";{":
            yield " ".join(head.split()), char == "{"
            head = ""
        elif depth == 0 and char != "}":
            head += char
        depth = max(0, depth + {"{": 1, "}": -1}.get(char, 0))


CLASS = re.compile(r"(?:class|struct) (KESTREL_API )?(\w+)")
FUNCTION = re.compile(r"(?!inline|constexpr|template|class|struct|enum|using|typedef|static_assert)"
                      r"[^=(]*\w\(")


def marks(tree):
    for file in tree.public:
        bodies = "".join(f.read_text(encoding="utf-8") for files in tree.sources.values()
                         for f in files if f.suffix == ".cpp" and f.stem == file.stem)
        for head, has_body in declarations(file.read_text(encoding="utf-8")):
            is_class = CLASS.match(head)
            if is_class and has_body:
                marked, name = is_class.groups()
                if not marked and re.search(rf"\b{name}::~?\w+\(", bodies):
                    yield f"{tree.name(file)}: class {name} lacks KESTREL_API"
            elif FUNCTION.match(head) and not has_body and "KESTREL_API" not in head:
                yield f"{tree.name(file)}: lacks KESTREL_API: {head}"


def check(root):
    tree = Tree(root)
    rules = [direction_of_sources, direction_of_public_headers, umbrella, marks]
    return [problem for rule in rules for problem in rule(tree)]


def main():
    root = sys.argv[1]
    if sys.argv[2:] == ["--write-umbrella"]:
        tree = Tree(root)
        (tree.root / "include/kestrel/kestrel.h").write_text(umbrella_text(tree), encoding="utf-8")
        return 0
    problems = check(root)
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Guards how the folders of the project hang together.

    check_structure.py ROOT                    every rule below, on the tree at ROOT
    check_structure.py ROOT --write-umbrella   writes the headers of the tiers and kestrel.h anew

Rules, by what a file includes:
- ORDER says which folders a file may know: its own and those before it, by their public headers;
  private headers only those of its own folder, of support/ and of platform/;
- convert/ is what programs are told to use, so nothing of the engine knows it; tools/ is a host: its
  own headers, public headers, and of foreign libraries what speaks to a terminal;
- a foreign library that FOREIGN names is seen only where that says;
- codecs are opened, driven and closed in platform/codec/ only;
- a setting of the look that the movie takes as it is touches four files: LookSettings.h, its row of
  LookTable.cpp, MovieLook.h and the source that makes the picture of it;
- no circles, down to the smallest folder, those of tests/ included: when a file of A includes one
  of B, none of B leads back;
- a public header includes public headers of its own folder or of those before it and the standard
  library, so that a host needs no foreign header.

Then: each public header is in the header of its tier, kestrel.h includes all tiers, and a public
class that is implemented in a .cpp, or a public function, is marked KESTREL_API; a public class
with a prefix is one of those that hosts have always known, or has an alias without it.
"""

import collections
import pathlib
import re
import sys

ORDER = ["platform", "support", "frames", "sources", "effects", "audio", "media", "output", "dvd",
         "composition", "waveform", "convert", "tools"]

# The folders of public headers that have no .cpp of their own.
HOMES = {
    "Vector.h": "platform/image/values", "Scaler.h": "platform/image/values",
    "YUVPicture.h": "platform/image/bitmap", "ParagraphStyle.h": "platform/text",
    "Error.h": "platform", "Export.h": "platform", "IndexSet.h": "platform",
    "Fragment.h": "support", "LMFFVideoColor.h": "support", "LMFFMovieImageProvider.h": "media", "MovieLook.h": "media",
    "TextSubtitle.h": "media",
    "LMDVDInternal.h": "dvd", "convert/OptionInfo.h": "convert/values",
}

# Private headers that a folder may include, beside its own.
PRIVATE = {folder: ["support", "platform"] for folder in ORDER}
PRIVATE.update({"platform": [], "support": ["platform"], "tools": []})

# Foreign headers, by how their names begin, and which files may include them: what a host needs of
# FFmpeg the library offers, and the command line's parser takes long to compile.
FOREIGN = [
    (re.compile(r"lib(av|sw|postproc)\w*/"), lambda file: not file.startswith("tools/")),
    (re.compile(r"CLI/"), lambda file: file == "tools/cli/CommandLine.cpp"),
]

# What is to be known of a setting of the look.
LOOK_TABLE = "convert/look/LookTable.cpp"

# The headers of the tiers, what they are for, and the folders whose headers they include. A folder
# counts for the longest name that it begins with.
TIERS = {
    "convert.h": ("Whole jobs: facts about inputs, conversions, joins, pictures of a time, playing.",
                  ["convert"]),
    "engine.h": ("What the jobs are made of: sources, movies, frames, effects, the file output.",
                 ["support", "frames", "sources", "effects", "audio", "media", "output",
                  "composition", "waveform"]),
    "disc.h": ("Video discs: the volume, its titles, and titles as sources.", ["dvd"]),
    "image.h": ("Pictures: lazy images, filters, the renderer, bitmaps, files, metrics, text.",
                ["platform/image", "platform/metrics", "platform/text"]),
    "platform.h": ("What systems offer: files, processes, archives, queues, sound devices.",
                   ["platform"]),
}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def includes(file):
    """(system?, name) of every include directive of a file."""
    text = file.read_text(encoding="utf-8")
    return [(kind == "<", name) for kind, name in INCLUDE.findall(text)]


class Tree:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        headers = self.root / "include/kestrel"
        umbrellas = {"kestrel.h", *TIERS}
        self.public = sorted(f for f in headers.rglob("*.h")
                             if f.relative_to(headers).as_posix() not in umbrellas)
        self.sources = {}  # folder -> its files
        for folder in ORDER:
            files = (self.root / folder).rglob("*")
            self.sources[folder] = sorted(f for f in files if f.suffix in (".h", ".cpp"))
        self.tests = sorted(f for f in (self.root / "tests").rglob("*") if f.suffix in (".h", ".cpp"))
        self.homes = dict(HOMES)  # public header, as kestrel/... -> folder that implements it
        for folder, files in self.sources.items():
            below = "convert/" if folder == "convert" else ""
            for file in files:
                if file.suffix == ".cpp":
                    self.homes.setdefault(below + file.stem + ".h", self.folder(file))

    def name(self, file):
        return file.relative_to(self.root).as_posix()

    def folder(self, file):
        return self.name(file.parent)

    def public_name(self, file):
        return file.relative_to(self.root / "include/kestrel").as_posix()

    def home(self, name):
        """The folder of a public header; of an umbrella header the last one that it includes."""
        if name in self.homes:
            return self.homes[name]
        if name.startswith("convert/"):
            return "convert"
        if name in TIERS:
            return max(TIERS[name][1], key=rank)
        return ORDER[-2] if name == "kestrel.h" else None


def rank(folder):
    return ORDER.index(folder.partition("/")[0])


def direction_of_sources(tree):
    for folder, files in tree.sources.items():
        for file in files:
            for system, name in includes(file):
                problem = problem_of_include(tree, folder, system, name)
                if problem:
                    yield f"{tree.name(file)}: includes {name}: {problem}"


def foreign_headers(tree):
    for files in tree.sources.values():
        for file in files:
            for _, name in includes(file):
                for start, may_include in FOREIGN:
                    if start.match(name) and not may_include(tree.name(file)):
                        yield f"{tree.name(file)}: may not include {name}"


CODEC_CALL = re.compile(r"\bavcodec_(open2|close|free_context|(?:send|receive)_(?:packet|frame))\s*\(")


def codec_calls(tree):
    for files in tree.sources.values():
        for file in files:
            if tree.folder(file) == "platform/codec":
                continue
            for call in CODEC_CALL.findall(file.read_text(encoding="utf-8")):
                yield f"{tree.name(file)}: avcodec_{call} is called by platform/codec/Codec.cpp only"


HANDED_ON = re.compile(r"(?:hand|number)<&L::(\w+), &M::(\w+)>")

# Where operations that hosts have always known get and set single settings of the look.
ACCESSORS = {"include/kestrel/LMFFMovie.h", "include/kestrel/LMFFEffectVideoStream.h",
             "media/LMFFMovieEffects.cpp", "media/LMFFEffectVideoStreamSettings.cpp"}


def look_settings(tree):
    """A setting of the look that is handed on as it is stands in its two records, in the table and
    where the picture is made of it. The scaler is that of pictures without a look, too."""
    table = tree.root / LOOK_TABLE
    if not table.exists():
        return
    files = [*tree.public, *(f for folder in ("media", "convert", "tools")
                             for f in tree.sources[folder])]
    texts = {tree.name(f): f.read_text(encoding="utf-8") for f in files}
    for names in HANDED_ON.findall(texts[LOOK_TABLE]):
        if "scaler" in names:
            continue
        use = re.compile(rf"(?:[.>:]\s*|\")(?:{'|'.join(names)})\b(?!\()")
        known = {"include/kestrel/MovieLook.h", "include/kestrel/convert/LookSettings.h", LOOK_TABLE}
        others = {name for name, text in texts.items() if use.search(text)} - known - ACCESSORS
        if len(others) > 1:
            yield (f"{LOOK_TABLE}: {names[0]} touches {len(known) + len(others)} files, not 4: "
                   + ", ".join(sorted(others)))


def problem_of_include(tree, folder, system, name):
    top, _, rest = name.partition("/")
    if top == "kestrel":
        if not system:
            return "public headers go in <>"
        home = tree.home(rest)
        if home and rank(home) > ORDER.index(folder):
            return f"{folder}/ may not know {home}/"
        return None
    if system:
        return None
    if not rest:
        return "private headers are included by their path from the project's root"
    if rest and top != folder and top not in PRIVATE[folder]:
        return f"{folder}/ may not include private headers of {top}/"
    return None


def direction_of_public_headers(tree):
    for file in tree.public:
        own = tree.home(tree.public_name(file))
        if not own:
            yield f"{tree.name(file)}: belongs to no folder; HOMES may say to which"
            continue
        for system, name in includes(file):
            if system and name.startswith("kestrel/"):
                home = tree.home(name[len("kestrel/"):])
                if home and rank(home) > rank(own):
                    yield f"{tree.name(file)}: includes {name}, which lies above it"
            elif not system or "/" in name or "." in name:
                yield f"{tree.name(file)}: includes {name}, which is neither public nor standard"


def folders_known(tree):
    """folder -> folder that it includes from -> one of the includes; public headers count as files
    of the folder that implements them."""
    known = collections.defaultdict(dict)
    files = [(tree.folder(f), f) for files in tree.sources.values() for f in files]
    files += [(tree.home(tree.public_name(f)), f) for f in tree.public]
    files += [(tree.folder(f), f) for f in tree.tests]
    for folder, file in files:
        for system, name in includes(file):
            if name.startswith("kestrel/"):
                target = tree.home(name[len("kestrel/"):])
            elif system or not (tree.root / name).exists():
                continue
            else:
                target = tree.folder(tree.root / name)
            if folder and target and target != folder:
                known[folder].setdefault(target, f"{tree.name(file)} includes {name}")
    return known


def circles(tree):
    """One circle for each folder that first closes one."""
    known = folders_known(tree)
    done = set()

    def follow(folder, path):
        if folder in path:
            circle = path[path.index(folder):] + [folder]
            steps = "; ".join(known[a][b] for a, b in zip(circle, circle[1:]))
            yield f"circle {' -> '.join(circle)}: {steps}"
        elif folder not in done:
            for target in sorted(known.get(folder, {})):
                yield from follow(target, path + [folder])
            done.add(folder)

    for folder in sorted(known):
        yield from follow(folder, [])


def tier_of(folder):
    """The name of the tier's header that a folder's public headers are in."""
    below = [(len(start), tier) for tier, (_, folders) in TIERS.items() for start in folders
             if (folder + "/").startswith(start + "/")]
    return max(below)[1] if below else None


def umbrella_texts(tree):
    """Header's name -> what it must hold."""
    members = collections.defaultdict(list)
    for file in tree.public:
        name = tree.public_name(file)
        members[tier_of(tree.home(name) or "")].append(name)
    texts = {}
    guide = []
    for tier, (about, _) in TIERS.items():
        if not members[tier]:
            continue
        lines = [f"#include <kestrel/{name}>" for name in sorted(members[tier])]
        texts[tier] = "\n".join(["#pragma once", "", f"// {about}", "", *lines]) + "\n"
        guide.append(f"//   {tier}".ljust(17) + about)
    lines = [f"#include <kestrel/{name}>" for name in sorted(texts)]
    texts["kestrel.h"] = "\n".join(["#pragma once", "", *START_HERE, *guide, "", *lines]) + "\n"
    return texts


START_HERE = """\
// Every public header. Start here:
//
// A program that converts, joins, plays or looks at movies begins with the first of these and needs
// a later one only where the first leaves off; each says what it is for, none needs one before it.
//""".split("\n")


def umbrella(tree):
    for name, text in umbrella_texts(tree).items():
        file = tree.root / "include/kestrel" / name
        if not file.exists() or file.read_text(encoding="utf-8") != text:
            yield f"include/kestrel/{name}: is not what --write-umbrella writes"


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


# The names with a prefix that hosts have always known.
PREFIXED = set("""
LMAudioGraph LMCustomSource LMDVD LMDVDFile LMDVDIO LMDVDInternal LMDVDMedia LMDVDSource LMDVDTitle
LMDVDTitleSet LMFFAudioFormat LMFFAudioResample LMFFEffectVideoStream LMFFFormat LMFFImage
LMFFImageColorspaceConverter LMFFMedia LMFFMediaStream LMFFMovie LMFFMovieFileOutput
LMFFMovieFileOutputFormat LMFFVideoFormat LMFIFODataBuffer LMMediaSource LMMovieComposition
LMMovieCompositionTrack LMOutputAudioGraph LMSubtitleSource LMWavSource
""".split())

PREFIXED_CLASS = re.compile(r"^(?:(?:class|struct)(?: KESTREL_API)?|using) (LM\w+)(?= *[:{=])",
                            re.MULTILINE)


def prefixes(tree):
    for file in tree.public:
        text = file.read_text(encoding="utf-8")
        for name in PREFIXED_CLASS.findall(text):
            if name not in PREFIXED and not re.search(rf"using \w+ = {name};", text):
                yield f"{tree.name(file)}: {name} has a prefix; additions have none, or an alias"


def check(root):
    tree = Tree(root)
    rules = [direction_of_sources, foreign_headers, codec_calls, direction_of_public_headers,
             look_settings, circles, umbrella, marks, prefixes]
    return [problem for rule in rules for problem in rule(tree)]


def main():
    root = sys.argv[1]
    if sys.argv[2:] == ["--write-umbrella"]:
        tree = Tree(root)
        for name, text in umbrella_texts(tree).items():
            (tree.root / "include/kestrel" / name).write_text(text, encoding="utf-8")
        return 0
    problems = check(root)
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

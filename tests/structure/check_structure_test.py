#!/usr/bin/env python3
"""Feeds check_structure.py small trees, sound ones and ones that break a rule."""

import pathlib
import tempfile
import unittest

import check_structure

SOUND = {
    "include/kestrel/Error.h": "#pragma once\n#include <string>\nstruct Error {};\n",
    "include/kestrel/Queue.h": "class KESTREL_API Queue {\n  void run();\n};\n",
    "include/kestrel/Movie.h": "#include <kestrel/Queue.h>\nclass KESTREL_API Movie {\n};\n",
    "include/kestrel/kestrel.h": "#include <kestrel/Error.h>\n#include <kestrel/Movie.h>\n"
                                 "#include <kestrel/Queue.h>\n",
    "platform/queue/Queue.cpp": "#include <kestrel/Queue.h>\n#include <thread>\n"
                                "void Queue::run() {}\n",
    "platform/queue/Thread.h": "#pragma once\n",
    "support/Owners.h": '#include "platform/queue/Thread.h"\n#include <kestrel/Error.h>\n',
    "media/Movie.cpp": '#include <kestrel/Movie.h>\n#include "support/Owners.h"\n'
                       '#include "media/Clock.h"\nMovie::Movie() {}\n',
    "media/Clock.h": "#pragma once\nextern \"C\" {\n#include <libavutil/avutil.h>\n}\n",
    "output/File.h": "#include <kestrel/Movie.h>\n",
    "tools/main.cpp": '#include <CLI/CLI.hpp>\n#include <kestrel/kestrel.h>\n#include "tools/Bar.h"\n'
                      '#include "Bar.h"\n',
    "tools/Bar.h": "#pragma once\n",
}


class CheckStructureTest(unittest.TestCase):
    def problems(self, **changed):
        """What the checker says of the sound tree with the files of `changed` put in."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {**SOUND, **changed.get("files", {})}.items():
                file = root / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text, encoding="utf-8")
            return check_structure.check(root)

    def assertRefused(self, file, text, about):
        problems = self.problems(files={file: text})
        self.assertEqual(len(problems), 1, problems)
        self.assertIn(file, problems[0])
        self.assertIn(about, problems[0])

    def test_sound_tree_passes(self):
        self.assertEqual(self.problems(), [])

    def test_platform_may_not_include_support(self):
        self.assertRefused("platform/queue/A.cpp", '#include "support/Owners.h"\n', "support/")

    def test_platform_may_not_include_a_public_header_of_the_engine(self):
        self.assertRefused("platform/queue/A.cpp", "#include <kestrel/Movie.h>\n", "media/")

    def test_support_may_not_include_private_headers_of_the_engine(self):
        self.assertRefused("support/A.h", '#include "media/Clock.h"\n', "media/")

    def test_support_may_not_include_a_public_header_of_the_engine(self):
        self.assertRefused("support/A.cpp", "#include <kestrel/Movie.h>\n", "media/")

    def test_support_may_include_the_records_and_platform_may_not(self):
        files = {"include/kestrel/LMFFFormat.h": "struct Rational {};\n",
                 "include/kestrel/kestrel.h": SOUND["include/kestrel/kestrel.h"]
                 + "#include <kestrel/LMFFFormat.h>\n",
                 "media/LMFFFormat.cpp": "#include <kestrel/LMFFFormat.h>\n",
                 "support/A.h": "#include <kestrel/LMFFFormat.h>\n"}
        self.assertEqual(self.problems(files=files), [])
        files["platform/queue/A.h"] = files["support/A.h"]
        self.assertEqual(len(self.problems(files=files)), 1)

    def test_engine_folders_may_not_include_each_others_private_headers(self):
        self.assertRefused("output/File.cpp", '#include "media/Clock.h"\n', "media/")

    def test_engine_may_not_include_tools(self):
        self.assertRefused("media/A.cpp", '#include "tools/Bar.h"\n', "tools/")

    def test_tools_may_not_include_private_headers(self):
        self.assertRefused("tools/A.cpp", '#include "support/Owners.h"\n', "support/")

    def test_headers_of_the_own_folder_go_by_their_full_path(self):
        self.assertRefused("media/A.cpp", '#include "Clock.h"\n', "path")

    def test_public_headers_go_in_angle_brackets(self):
        self.assertRefused("media/A.cpp", '#include "kestrel/Movie.h"\n', "<>")

    def test_public_header_may_not_include_a_foreign_one(self):
        self.assertRefused("include/kestrel/Error.h", "#include <libavutil/frame.h>\n", "libavutil")

    def test_public_header_may_not_include_a_private_one(self):
        self.assertRefused("include/kestrel/Error.h", '#include "support/Owners.h"\n', "support")

    def test_public_header_of_platform_may_not_include_one_of_the_engine(self):
        self.assertRefused("include/kestrel/Queue.h",
                           "#include <kestrel/Movie.h>\nclass KESTREL_API Queue {\n};\n", "above")

    def test_indented_directive_counts(self):
        self.assertRefused("platform/queue/A.cpp", '#if 1\n #  include "media/Clock.h"\n#endif\n',
                           "media/")

    def test_header_that_the_umbrella_lacks(self):
        problems = self.problems(files={"include/kestrel/New.h": "#pragma once\n"})
        self.assertEqual(problems, ["include/kestrel/kestrel.h: lacks New.h"])

    def test_unmarked_class_with_an_implementation(self):
        self.assertRefused("include/kestrel/Movie.h", "class Movie : public Base {\n};\n",
                           "class Movie lacks KESTREL_API")

    def test_unmarked_function(self):
        self.assertRefused("include/kestrel/Error.h", "struct Error {};\nint describe(int code,\n"
                           "             int more);\n", "int describe(int code, int more)")

    def test_mark_may_stand_on_the_line_before(self):
        text = "struct Error {};\nKESTREL_API LongName\nfunction(int a);\n"
        self.assertEqual(self.problems(files={"include/kestrel/Error.h": text}), [])

    def test_inline_function_needs_no_mark(self):
        text = ("#define MANY(x) \\\n  int m(x);\nstruct AVFrame;\nnamespace kestrel {\n"
                "struct Error {\n  int code();\n};\ninline int f() { return g(1); }\nclass Movie;\n"
                "using F = std::function<void(int)>;\nenum class Kind { kOne };\n"
                "inline constexpr int kOne = one(1);\n}\n")
        self.assertEqual(self.problems(files={"include/kestrel/Error.h": text}), [])

    def test_written_umbrella_is_complete(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "include/kestrel").mkdir(parents=True)
            (root / "include/kestrel/A.h").write_text("#pragma once\n", encoding="utf-8")
            text = check_structure.umbrella_text(check_structure.Tree(root))
            (root / "include/kestrel/kestrel.h").write_text(text, encoding="utf-8")
            self.assertEqual(check_structure.check(root), [])


if __name__ == "__main__":
    unittest.main()

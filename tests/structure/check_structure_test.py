#!/usr/bin/env python3
"""Feeds check_structure.py small trees, sound ones and ones that break a rule."""

import pathlib
import re
import tempfile
import unittest

import check_structure

SOUND = {
    "include/kestrel/Error.h": "#pragma once\n#include <string>\nstruct Error {};\n",
    "include/kestrel/Queue.h": "class KESTREL_API Queue {\n  void run();\n};\n",
    "include/kestrel/Movie.h": "#include <kestrel/Queue.h>\nclass KESTREL_API Movie {\n};\n",
    "platform/queue/Queue.cpp": "#include <kestrel/Queue.h>\n#include <thread>\n"
                                "void Queue::run() {}\n",
    "platform/queue/Thread.h": "#pragma once\n",
    "support/Owners.h": '#include "platform/queue/Thread.h"\n#include <kestrel/Error.h>\n',
    "media/Movie.cpp": '#include <kestrel/Movie.h>\n#include "support/Owners.h"\n'
                       '#include "media/Clock.h"\nMovie::Movie() {}\n',
    "media/Clock.h": "#pragma once\nextern \"C\" {\n#include <libavutil/avutil.h>\n}\n",
    "output/File.h": "#include <kestrel/Movie.h>\n",
    "tools/main.cpp": '#include <fmt/format.h>\n#include <kestrel/kestrel.h>\n#include "tools/Bar.h"\n',
    "tools/Bar.h": "#pragma once\n",
}


class CheckStructureTest(unittest.TestCase):
    def problems(self, files=None, written=True):
        """What the checker says of the sound tree with `files` put in, its umbrellas written."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {**SOUND, **(files or {})}.items():
                file = root / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text, encoding="utf-8")
            if written:
                for name, text in check_structure.umbrella_texts(
                        check_structure.Tree(root)).items():
                    (root / "include/kestrel" / name).write_text(text, encoding="utf-8")
            return check_structure.check(root)

    def assertRefused(self, file, text, about):
        problems = [p for p in self.problems({file: text}) if not p.startswith("circle")]
        self.assertEqual(len(problems), 1, problems)
        self.assertIn(file, problems[0])
        self.assertIn(about, problems[0])

    def assertCircle(self, files, *folders):
        problems = self.problems(files)
        self.assertEqual(len(problems), 1, problems)
        self.assertIn("circle " + " -> ".join(folders), problems[0])

    def test_sound_tree_passes(self):
        self.assertEqual(self.problems(), [])

    def test_codecs_are_driven_in_one_place(self):
        call = "int n = avcodec_send_frame(encoder, frame);\n"
        self.assertRefused("media/A.cpp", call, "avcodec_send_frame")
        self.assertRefused("platform/image/A.cpp", call, "avcodec_send_frame")
        self.assertRefused("media/A.cpp", "avcodec_free_context(&codec);\n", "avcodec_free_context")
        self.assertEqual(self.problems({"platform/codec/A.cpp": call}), [])

    def test_platform_may_not_include_support(self):
        self.assertRefused("platform/queue/A.cpp", '#include "support/Owners.h"\n', "support/")

    def test_platform_may_not_include_a_public_header_of_the_engine(self):
        self.assertRefused("platform/queue/A.cpp", "#include <kestrel/Movie.h>\n", "media/")

    def test_support_may_not_include_private_headers_of_the_engine(self):
        self.assertRefused("support/A.h", '#include "media/Clock.h"\n', "media/")

    def test_support_may_not_include_a_public_header_of_the_engine(self):
        self.assertRefused("support/A.cpp", "#include <kestrel/Movie.h>\n", "media/")

    def test_engine_folders_may_know_those_before_them_only(self):
        self.assertEqual(self.problems({"output/File.cpp": "#include <kestrel/Movie.h>\n"}), [])
        self.assertRefused("sources/Source.cpp", "#include <kestrel/Movie.h>\n", "media/")

    def test_convert_sees_the_engine_and_is_seen_by_tools_only(self):
        files = {"include/kestrel/convert/Job.h": "class KESTREL_API Job {\n};\n",
                 "convert/run/Job.cpp": "#include <kestrel/convert/Job.h>\n"
                                        "#include <kestrel/Movie.h>\nJob::Job() {}\n",
                 "tools/Verb.cpp": "#include <kestrel/convert/Job.h>\n"}
        self.assertEqual(self.problems(files), [])
        files["output/A.cpp"] = "#include <kestrel/convert/Job.h>\n"
        self.assertIn("output/ may not know convert/run/", self.problems(files)[0])
        self.assertRefused("convert/run/A.cpp", '#include "media/Clock.h"\n', "media/")

    def test_additions_bear_no_prefix(self):
        for text in ("struct LMGadget {\n};\n", "using LMGadget = int;\n"):
            self.assertRefused("include/kestrel/Error.h", text, "has a prefix")
        for text in ("struct LMGadget {\n};\nusing Gadget = LMGadget;\n",
                     "struct LMDVD {\n};\nclass LMElsewhere;\n"):
            self.assertEqual(self.problems({"include/kestrel/Error.h": text}), [])

    def test_circle_between_rooms_of_one_folder(self):
        self.assertCircle({"platform/files/A.h": '#include "platform/queue/Thread.h"\n',
                           "platform/queue/Thread.h": '#include "platform/files/A.h"\n'},
                          "platform/queue", "platform/files", "platform/queue")

    def test_circle_through_public_headers(self):
        self.assertCircle({"include/kestrel/File.h": "class KESTREL_API File {\n};\n",
                           "platform/files/File.cpp": "#include <kestrel/Queue.h>\n"
                                                      "#include <kestrel/File.h>\n",
                           "include/kestrel/Queue.h": "#include <kestrel/File.h>\n"
                                                      "class KESTREL_API Queue {\n};\n"},
                          "platform/queue", "platform/files", "platform/queue")

    def test_circle_between_folders_of_tests(self):
        self.assertCircle({"tests/a/A.h": '#include "tests/b/B.h"\n',
                           "tests/b/B.h": "#pragma once\n",
                           "tests/b/B.cpp": '#include "tests/a/A.h"\n'},
                          "tests/a", "tests/b", "tests/a")

    def test_longer_circle(self):
        self.assertCircle({"platform/a/A.h": '#include "platform/b/B.h"\n',
                           "platform/b/B.h": '#include "platform/c/C.h"\n',
                           "platform/c/C.h": '#include "platform/a/A.h"\n'},
                          "platform/a", "platform/b", "platform/c", "platform/a")

    def test_header_that_belongs_nowhere(self):
        self.assertRefused("include/kestrel/New.h", "#pragma once\n", "belongs to no folder")

    def test_engine_folders_may_not_include_each_others_private_headers(self):
        self.assertRefused("output/File.cpp", '#include "media/Clock.h"\n', "media/")

    def test_engine_may_not_include_tools(self):
        self.assertRefused("media/A.cpp", '#include "tools/Bar.h"\n', "tools/")

    def test_tools_may_not_include_private_headers(self):
        self.assertRefused("tools/A.cpp", '#include "support/Owners.h"\n', "support/")

    def test_tools_see_nothing_of_ffmpeg(self):
        for name in ("libavutil/color.h", "libswscale/swscale.h"):
            self.assertEqual(self.problems({"media/A.cpp": f"#include <{name}>\n"}), [])
            self.assertRefused("tools/A.cpp", f"#include <{name}>\n", name)

    def test_one_file_sees_the_parser_of_arguments(self):
        include = "#include <CLI/CLI.hpp>\n"
        self.assertEqual(self.problems({"tools/cli/CommandLine.cpp": include}), [])
        self.assertRefused("tools/verbs/A.cpp", include, "CLI/CLI.hpp")

    def test_a_setting_of_the_look_touches_four_files(self):
        files = {"include/kestrel/MovieLook.h": "struct MovieLook {\n  float glow;\n};\n",
                 "include/kestrel/convert/LookSettings.h": "struct LookSettings {\n  float glow;\n};\n",
                 "convert/look/LookTable.cpp": "auto row = number<&L::glow, &M::glow>();\n",
                 "media/Movie.cpp": SOUND["media/Movie.cpp"] + "float f() { return look.glow; }\n"}
        self.assertEqual(self.problems(files), [])
        files["tools/main.cpp"] = 'verb.option("glow");\n'
        self.assertIn("glow touches 5 files, not 4: media/Movie.cpp, tools/main.cpp",
                      self.problems(files)[0])

    def test_headers_of_the_own_folder_go_by_their_full_path(self):
        self.assertRefused("media/A.cpp", '#include "Clock.h"\n', "path")
        self.assertRefused("tools/A.cpp", '#include "Bar.h"\n', "path")

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

    def test_umbrella_that_was_not_written_anew(self):
        problems = self.problems(written=False)
        self.assertIn("include/kestrel/kestrel.h: is not what --write-umbrella writes", problems)
        self.assertIn("include/kestrel/engine.h: is not what --write-umbrella writes", problems)

    def test_headers_go_to_the_tier_of_their_folder(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name in ["platform/queue/Queue.cpp", "platform/image/recipe/Image.cpp",
                         "media/Movie.cpp", "dvd/Disc.cpp", "include/kestrel/Queue.h",
                         "include/kestrel/Image.h", "include/kestrel/Movie.h",
                         "include/kestrel/Disc.h", "include/kestrel/convert/Report.h"]:
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text("", encoding="utf-8")
            texts = check_structure.umbrella_texts(check_structure.Tree(root))
        included = {name: re.findall("include <kestrel/(.*)>", text)
                    for name, text in texts.items()}
        self.assertEqual(included, {
            "convert.h": ["convert/Report.h"], "engine.h": ["Movie.h"], "disc.h": ["Disc.h"],
            "image.h": ["Image.h"], "platform.h": ["Queue.h"],
            "kestrel.h": ["convert.h", "disc.h", "engine.h", "image.h", "platform.h"]})

    def test_unmarked_class_with_an_implementation(self):
        self.assertRefused("include/kestrel/Movie.h", "class Movie : public Base {\n};\n",
                           "class Movie lacks KESTREL_API")

    def test_unmarked_function(self):
        self.assertRefused("include/kestrel/Error.h", "struct Error {};\nint describe(int code,\n"
                           "             int more);\n", "int describe(int code, int more)")

    def test_mark_may_stand_on_the_line_before(self):
        text = "struct Error {};\nKESTREL_API LongName\nfunction(int a);\n"
        self.assertEqual(self.problems({"include/kestrel/Error.h": text}), [])

    def test_inline_function_needs_no_mark(self):
        text = ("#define MANY(x) \\\n  int m(x);\nstruct AVFrame;\nnamespace kestrel {\n"
                "struct Error {\n  int code();\n};\ninline int f() { return g(1); }\nclass Movie;\n"
                "using F = std::function<void(int)>;\nenum class Kind { kOne };\n"
                "inline constexpr int kOne = one(1);\n}\n")
        self.assertEqual(self.problems({"include/kestrel/Error.h": text}), [])


if __name__ == "__main__":
    unittest.main()

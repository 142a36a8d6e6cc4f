#!/usr/bin/env python3
"""Feeds check_docs.py small trees, with the compiler that is named as its argument."""

import pathlib
import sys
import tempfile
import unittest

import check_docs

COMPILER = ["c++", "-std=c++20", "-Wall", "-Werror"]
PROGRAM = "#include <string>\n\nint main() { return std::string().empty() ? 0 : 1; }\n"


def page(text, mark=""):
    return f"Words.\n\n{mark}\n```cpp\n{text}```\n\n```sh\nnot C++\n```\n"


class CheckDocsTest(unittest.TestCase):
    def check(self, files):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {"include/kestrel/kestrel.h": "namespace kestrel { struct Movie {}; }\n",
                               **files}.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text, encoding="utf-8")
            return check_docs.check(root, COMPILER)

    def assertRefused(self, files, *about):
        problems, _, _ = self.check(files)
        self.assertEqual(len(problems), 1, problems)
        for text in about:
            self.assertIn(text, problems[0])

    def test_true_pages_pass(self):
        self.assertEqual(
            self.check({"README.md": page(PROGRAM, "<!-- examples/a.cpp -->"),
                        "examples/a.cpp": PROGRAM,
                        "docs/a.md": page(PROGRAM),
                        "docs/b.md": page("kestrel::Movie copy = movie;\n(void)copy;\n",
                                          "<!-- fragment: const kestrel::Movie& movie -->")}),
            ([], 2, 1))

    def test_program_must_compile_by_itself(self):
        self.assertRefused({"docs/a.md": page(PROGRAM.replace("#include <string>", ""))},
                           "docs/a.md:5", "string")

    def test_warnings_count(self):
        self.assertRefused({"docs/a.md": page("int main() { int unused = 1; }\n")},
                           "docs/a.md:5:", "unused")

    def test_fragment_must_compile_where_it_stands(self):
        self.assertRefused({"docs/a.md": page("movie.fly();\n",
                                              "<!-- fragment: kestrel::Movie& movie -->")},
                           "docs/a.md:5:", "fly")

    def test_fragment_may_need_nothing(self):
        self.assertEqual(self.check({"docs/a.md": page("std::cout << 1;\n", "<!-- fragment: -->")}),
                         ([], 1, 0))

    def test_fragment_without_its_mark_is_no_file(self):
        self.assertRefused({"docs/a.md": page("movie.fly();\n")}, "docs/a.md:5")

    def test_copy_must_be_the_file(self):
        for text in (PROGRAM + "\n", PROGRAM.replace("0 : 1", "1 : 0")):
            self.assertRefused({"README.md": page(PROGRAM, "<!-- examples/a.cpp -->"),
                                "examples/a.cpp": text}, "README.md:5", "examples/a.cpp")

    def test_copy_of_nothing(self):
        self.assertRefused({"README.md": page(PROGRAM, "<!-- examples/a.cpp -->")},
                           "examples/a.cpp")

    def lengths(self, page, example=None):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "README.md").write_text(page, encoding="utf-8")
            if example is not None:
                (root / "examples").mkdir()
                (root / "examples/a.cpp").write_text(example, encoding="utf-8")
            return check_docs.check_lengths(root)

    def test_length_of_an_example(self):
        example = ("#include <string>\n\nint helper() {\n  return 2;\n}\n\n"
                   "int main() try {\n  if (helper()) {\n    helper();\n  }\n\n"
                   "} catch (...) {\n  return 1;\n}\n")
        for most, problems in ((5, 0), (6, 0), (4, 1)):
            page = f"Of an [example](examples/a.cpp) the body takes\nat most {most} lines.\n"
            found, lengths = self.lengths(page, example)
            self.assertEqual((len(found), lengths), (problems, 1), found)
        self.assertIn("has 5 lines", self.lengths("[a](examples/a.cpp) at most 4", example)[0][0])

    def test_each_length_is_of_the_example_before_it(self):
        page = "[one](examples/a.cpp) at most 3, [two](examples/b.cpp) at most 1"
        found, lengths = self.lengths(page, "int main() {\n  return 0;\n}\n")
        self.assertEqual(lengths, 2)
        self.assertEqual(found, ["README.md: examples/b.cpp has no main"])

    def test_example_without_a_length(self):
        self.assertEqual(self.lengths("[one](examples/a.cpp), and no number"), ([], 0))


if __name__ == "__main__":
    unittest.main()

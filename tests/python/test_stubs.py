"""The types that editors and checkers read are those of the module."""

import ast
import inspect
import unittest
from pathlib import Path

import kestrel


def names_of(body):
    names = set()
    for node in body:
        if isinstance(node, (ast.ClassDef, ast.FunctionDef)):
            names.add(node.name)
        elif isinstance(node, ast.AnnAssign):
            names.add(node.target.id)
    return names


class Stubs(unittest.TestCase):
    def setUp(self):
        stubs = Path(kestrel.__file__).with_name("__init__.pyi")
        self.body = ast.parse(stubs.read_text()).body

    def test_name_all_that_is_public(self):
        stubbed = {name for name in names_of(self.body) if not name.startswith("_")}
        public = {
            name
            for name in dir(kestrel)
            if not name.startswith("_") and not inspect.ismodule(getattr(kestrel, name))
        }
        self.assertEqual(stubbed, public)

    def test_name_all_members(self):
        for node in self.body:
            if not isinstance(node, ast.ClassDef):
                continue
            owner = getattr(kestrel, node.name)
            if issubclass(owner, BaseException):
                continue
            stubbed = {name for name in names_of(node.body) if not name.startswith("_")}
            public = {name for name in vars(owner) if not name.startswith("_")}
            self.assertEqual(stubbed, public, node.name)

    def test_have_the_parameters_of_the_functions(self):
        for node in self.body:
            if not isinstance(node, ast.FunctionDef):
                continue
            signature = getattr(kestrel, node.name).__doc__.splitlines()[0]
            for argument in node.args.args + node.args.kwonlyargs:
                self.assertIn(f"{argument.arg}:", signature, node.name)

    def test_everything_public_is_explained(self):
        for name in dir(kestrel):
            if not name.startswith("_"):
                self.assertTrue(getattr(kestrel, name).__doc__, name)


if __name__ == "__main__":
    unittest.main()

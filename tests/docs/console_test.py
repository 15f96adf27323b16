# SPDX-License-Identifier: Apache-2.0
"""Every console block of the documents prints what it shows."""
import unittest

from sandbox import SOURCE, Sandbox, steps_of


def in_order(command, text):
    """Rows come in the order of the directories, which no document can know."""
    return sorted(text.splitlines()) if command.startswith("vxu_show_scenarios") else text


class Console(unittest.TestCase):
    maxDiff = None

    def check(self, name):
        sandbox = Sandbox()
        self.addCleanup(sandbox.close)
        document = SOURCE / name
        for command, shown in steps_of(document.read_text()):
            with self.subTest(command):
                printed = sandbox.run(command, document.relative_to(SOURCE).parent)
                self.assertEqual(in_order(command, printed), in_order(command, shown))

    def test_readme(self):
        self.check("README.md")

    def test_examples(self):
        self.check("examples/README.md")

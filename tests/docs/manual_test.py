# SPDX-License-Identifier: Apache-2.0
# Every console block of the documents prints what it shows; the manual pages are well-formed,
# complete and true.
import itertools, re, subprocess, unittest

from sandbox import SOURCE, Sandbox, needs, option_table, steps_of

PAGES = sorted((SOURCE / "man").glob("*.[13]"))
COMMAND_PAGE = SOURCE / "man/vxu_show_scenarios.1"
LITERAL = r'"((?:[^"\\\n]|\\.)*)"'


def output_of(*words):
    return subprocess.run(words, cwd=SOURCE / "man", text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT).stdout


def text_of(page):
    # What a page says, each run of white space as one blank.
    return re.sub(r"\s+", " ", re.sub(".\b", "", output_of("mandoc", "-Tascii", "-Owidth=999", page)))


def messages():
    # Every text of the command's sources that has words in it, cut at what is filled in.
    for source in (SOURCE / "core/user_admin").glob("*.cpp"):
        code = re.sub(r"^#include.*|//.*", "", source.read_text(), flags=re.M)
        for run in re.finditer(rf"(?:{LITERAL}\s*)+", code):
            text = "".join(re.findall(LITERAL, run[0]))
            if re.search("[A-Za-z]{2}.* |^ .*[A-Za-z]{2}", text):
                text = text.replace(r"\"", '"')
                yield from re.split(r"%[a-z]+|\\[nr]|\\033\[K", text)


def in_order(command, text):
    # Rows come in the order of the directories, which no document can know.
    return sorted(text.splitlines()) if command.startswith("vxu_show_scenarios") else text


@needs("column", "python3")
class Console(unittest.TestCase):
    def test_console_blocks_print_what_they_show(self):
        for document in (SOURCE / "README.md", SOURCE / "examples/README.md"):
            sandbox = Sandbox(self)
            for command, shown in steps_of(document.read_text()):
                with self.subTest(command):
                    printed = sandbox.run(command, document.relative_to(SOURCE).parent)
                    self.assertEqual(in_order(command, printed), in_order(command, shown))

    def test_the_readme_has_a_program(self):
        sandbox = Sandbox(self)
        program = re.search(r"^```c\n(.*?)^```", (SOURCE / "README.md").read_text(), re.M | re.S)[1]
        (sandbox.top / "tags.c").write_text(program)
        sandbox.run("cp work/workspace/admin/default/maranth/*/*/scenarios/peak/scenario.json .")
        self.assertEqual(sandbox.run("cc tags.c -lvxcore -o tags && ./tags"), "Smoke\nPeak\n")


@needs("mandoc", "groff")
class Manual(unittest.TestCase):
    def test_mandoc_and_groff_are_silent(self):
        for page in PAGES:
            for words in (["mandoc", "-Tlint"], ["groff", "-man", "-ww", "-z"],
                          ["groff", "-mandoc", "-ww", "-z", "-Tutf8"]):
                self.assertEqual(output_of(*words, page), "", page.name)

    def test_every_option_and_every_message_is_explained(self):
        page = text_of(COMMAND_PAGE)
        letters = re.search(rf"OPTION_LETTERS = {LITERAL}",
                            (SOURCE / "core/user_admin/options.cpp").read_text())[1]
        for letter in letters.replace(":", ""):
            self.assertIn(f"\n.It Fl {letter}", COMMAND_PAGE.read_text())
        for message in messages():
            self.assertTrue(re.sub(r"\s+", " ", message).strip() in page, message)

    def test_the_table_of_options_is_what_the_command_does(self):
        sandbox = Sandbox(self)
        table = option_table()
        words = {o: [f"-{o}"] + (["alice"] if o in "upwWkT" else ["1"] if o in "st" else [])
                 for o in table}
        self.assertEqual(len(table), 11)
        for before, option in itertools.product(table, table):
            printed = sandbox.run(["vxu_show_scenarios", *words[before], *words[option]])
            self.assertEqual("Usage:" not in printed, option in table[before], (before, option))

    def test_every_public_name_is_in_the_page_of_its_header(self):
        for header in (SOURCE / "base/include/libvxcore").glob("*.h"):
            code = header.read_text().split("not for direct use")[0]
            code = re.sub(r"/\*.*?\*/|\\\n|__attribute__\(\(\w+\)\)", " ", code, flags=re.S)
            names = re.findall(r"^#define \w+(?<!_H)\b|\bVXLB_JSON\w+\b", code, re.M)
            code = re.sub(r"^#.*|\{[^{}]*;[^{}]*\}", "", code, flags=re.M)
            names += re.findall(r"^(?:extern|typedef|static|[a-z]).*?(\w+)(?:\[\w+\])?(?: =.*)?(?:;|\()",
                                code, re.M)
            page = text_of(SOURCE / f"man/{header.stem}.3")
            for name in names:
                self.assertRegex(page, rf"\b{name.split()[-1]}\b", header.name)

    def test_every_example_prints_what_its_page_says(self):
        sandbox = Sandbox(self)
        for page in (SOURCE / "man").glob("*.3"):
            shown = page.read_text().split(".Sh EXAMPLES")[1]
            for escape, char in ((r"\&", ""), (r"\-", "-"), (r"\(aq", "'"), (r"\(ga", "`"),
                                 (r"\(ha", "^"), (r"\(ti", "~"), (r"\e", "\\")):
                shown = shown.replace(escape, char)
            program, printed = re.findall(r"\.Bd -literal\n(.*?)\.Ed", shown, re.S)
            (sandbox.top / f"{page.stem}.c").write_text(program)
            self.assertEqual(sandbox.run(f"cc {page.stem}.c -lvxcore -lpthread -o example && ./example"),
                             printed, page.name)

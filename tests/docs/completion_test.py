# SPDX-License-Identifier: Apache-2.0
# Completion offers what may follow, and every name that it offers arrives whole.
#
# Each shell runs at a terminal, where keys are typed: a line, the key that inserts all completions,
# and return. In place of the command stands a stub that keeps its arguments.
import os, pty, re, select, unittest

from sandbox import SOURCE, Sandbox, needs, option_table

PLACE = SOURCE / "completions"
HARD = ["$(touch x)", "-", "Plain", "a b", "a&b;c|d", "a'b", 'a"b!c', "back\\slash", "c:d=e", "`id`",
        "~", "{x,y}", "é*?[z]"]


class Shell:
    def __init__(self, sandbox, words, settings, line):
        self.top, self.line = sandbox.top, line
        sandbox.tool("vxu_show_scenarios", "printf '%s\\0' \"$@\" >$HOME/given; echo '##'")
        (self.top / ".zshrc").write_text(settings)
        process, self.terminal = pty.fork()
        if process == 0:
            os.chdir(self.top)
            os.execvpe(words[0], [w.format(self.top) for w in words], sandbox.environment)
        self.wait_for("@@")

    def wait_for(self, text):
        screen = ""
        while not re.search(text, screen, re.S):
            if not select.select([self.terminal], [], [], 20)[0]:
                raise TimeoutError(screen)
            screen += os.read(self.terminal, 65536).decode(errors="replace")

    def offers(self, start):
        # Type the start of a line; what completion adds to its words, as the command gets it.
        os.write(self.terminal, f"{self.line.format(start)}\n".encode())
        self.wait_for("##.*@@")
        words = (self.top / "given").read_text().split("\0")[start.count(" "):-1]
        return sorted(word.rstrip("/") for word in words)


# How each shell is called, what it is told at first, and how completions are asked for.
SHELLS = [
    (["bash", "--rcfile", "{}/.zshrc", "-i"],
     f"PS1=@''@; source {PLACE}/vxu_show_scenarios.bash", "vxu_show_scenarios {}\x1b*"),
    (["zsh", "-d", "-i"],
     f"""PS1=@''@; fpath=({PLACE} $fpath); autoload -U compinit; compinit -D -u
        all() {{ _main_complete; compstate[insert]=all }}
        zle -C all complete-word all; bindkey '^T' all""", "vxu_show_scenarios {}\x14"),
    (["fish", "--no-config", "-i", "-C", "source {}/.zshrc"],
     f"""source {PLACE}/vxu_show_scenarios.fish
        function fish_prompt; printf @@; end
        function offers
            vxu_show_scenarios (string split ' ' -- $argv)[..-2] \\
                (complete -C "vxu_show_scenarios $argv" | string replace -r '\\t.*' '')
        end""", "offers '{}'")]


class Completion(unittest.TestCase):
    @needs("bash", "zsh", "fish")
    def test_offers_what_may_follow(self):
        sandbox = Sandbox(self)
        for name in HARD:
            (sandbox.top / "work/workspace/hard/p/maranth" / name / "sub").mkdir(parents=True)
        (sandbox.top / "work/workspace/a file").touch()
        for each in SHELLS:
            with self.subTest(each[0][0]):
                self.check(Shell(sandbox, *each), option_table())

    def check(self, shell, table):
        for before in table:
            given = f"-{before} {'x ' if before in 'upwWsktT' else ''}"
            self.assertEqual(shell.offers(given + "-"), sorted(f"-{o}" for o in table[before]))
        for start, names in (("-w ", ["admin", "hard", "team_a"]), ("-t f", ["functional"]),
                             ("-W ", ["admin", "hard", "team_a"]), ("-u ", []), ("-- ", []),
                             ("-w team_a/p", ["team_a/payments"]), ("-p Ba", ["Bank"]),
                             ("-p Shop/", ["Shop/Checkout", "Shop/Search"]),
                             ("-w team_a/repo -p ", ["Shared"]), ("-w hard/p -p ", sorted(HARD))):
            self.assertEqual(shell.offers(start), names, start)


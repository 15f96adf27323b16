# SPDX-License-Identifier: Apache-2.0
# What the tests of the documentation share: a place to run what the documents show.
#
# A console block shows commands behind "$ " and what they print. It is run as an ordinary user, in a
# copy of the examples, beside a sample work directory. The documents call that user maranth.
import grp, os, pathlib, pwd, re, shutil, subprocess, tempfile, unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
COMMAND, LIBRARY, CC, FLAGS = (os.environ[f"VX_{n}"] for n in ("COMMAND", "LIBRARY", "CC", "FLAGS"))
USER = pwd.getpwnam("nobody") if os.geteuid() == 0 else pwd.getpwuid(os.geteuid())
OWNERS = rf'{USER.pw_name}([|,]|", "group": "){grp.getgrgid(USER.pw_gid).gr_name}'


def needs(*tools):
    return unittest.skipUnless(all(map(shutil.which, tools)), f"needs {tools}")


class Sandbox:
    def __init__(self, test):
        self.top = pathlib.Path(tempfile.mkdtemp(dir="/tmp", prefix="vxdocs"))
        test.addCleanup(shutil.rmtree, self.top)
        self.top.chmod(0o755)
        tools = self.top / "bin"
        shutil.copytree(SOURCE / "examples", self.top / "examples")
        shutil.copytree(self.top / "examples/helpers", tools)
        shutil.copytree(SOURCE / "base/include", self.top / "include")
        for file, place in ((COMMAND, tools), (LIBRARY, self.top)):
            shutil.copy(file, place)
        self.tool("cc", f'exec {CC} "$@" {FLAGS} -Wall -Wextra -Werror')
        self.environment = {
            "PATH": f"{tools}:/usr/bin:/bin", "TZ": "UTC", "LC_ALL": "C.UTF-8", "TERM": "xterm",
            "HOME": str(self.top), "VX_WDIR": f"{self.top}/work", "CPATH": f"{self.top}/include",
            "LIBRARY_PATH": str(self.top), "LD_LIBRARY_PATH": str(self.top)}
        for path in (self.top, self.top / "examples"):
            os.chown(path, USER.pw_uid, USER.pw_gid)
        for step in ("cc -shared -Wl,--whole-archive -lvxcore -Wl,--no-whole-archive "
                     "-o libvxcore.so.1", "examples/make-sample-workdir $VX_WDIR"):
            printed = self.run(step)
            assert self.status == 0, printed

    def tool(self, name, text):
        path = self.top / "bin" / name
        path.write_text(f"#!/bin/sh\n{text}\n")
        path.chmod(0o755)

    def run(self, command, place="", **more):
        # Run a shell command, or a list of words; what it printed on either output.
        if os.geteuid() == 0:
            more |= {"user": USER.pw_uid, "group": USER.pw_gid, "extra_groups": []}
        done = subprocess.run(command, cwd=self.top / place, env=self.environment, text=True,
                              shell=isinstance(command, str), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=60, **more)
        self.status = done.returncode
        return re.sub(OWNERS, r"maranth\1maranth", done.stdout)


def option_table():
    # The manual's table of options: for each one that stands before, those that may follow.
    page = (SOURCE / "man/vxu_show_scenarios.1").read_text()
    heads, *rows = [row.split(" Ta ") for row in
                    re.findall(r"^\.It (?:before|Fl \w) Ta (.*)", page, re.M)]
    return {before: {option for option, says in zip(heads, row) if says == "+"}
            for before, row in zip(heads, rows, strict=True)}


def steps_of(document):
    # The commands of a document's console blocks, each with what it is said to print.
    for block in re.findall(r"^```console\n(.*?)^```", document, re.M | re.S):
        for step in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, shown = re.fullmatch(r"((?:.*\\\n)*.*\n)([\s\S]*)", step).groups()
            yield command, shown

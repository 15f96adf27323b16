#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# Packages, the installed library and the tree's own data, as their users meet them.
#
# package_test.py CLASS. Build makes the folder $VX_PACKAGES that the other classes use.
import ctypes, json, os, pathlib, re, shutil, subprocess, sys, time, unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
WORK = pathlib.Path(os.environ["VX_PACKAGES"])
BUILT = WORK / "one"  # the build that is looked at
VERSION = re.search(r"VERSION (\d+\.\d+\.\d+)", (SOURCE / "CMakeLists.txt").read_text())[1]
AS_ROOT = [] if os.getuid() == 0 else ["fakeroot"]
HEADERS = sorted((SOURCE / "base/include/libvxcore").glob("*.h"))
INSTALLED = {
    "usr/bin/vxu_show_scenarios", "usr/include/libvxcore/vxlb_log.h",
    "usr/lib/x86_64-linux-gnu/libvxcore.so", "usr/share/man/man1/vxu_show_scenarios.1.gz",
    "usr/share/bash-completion/completions/vxu_show_scenarios",
    "usr/share/zsh/vendor-completions/_vxu_show_scenarios",
    "usr/share/fish/vendor_completions.d/vxu_show_scenarios.fish"}


# The output of a command that must succeed.
def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.STDOUT, **options)
    assert done.returncode == 0, f"status {done.returncode} from {command}:\n{done.stdout}"
    return done.stdout


# What the repository, or an unpacked release, holds.
def sources():
    if (SOURCE / ".git").exists():
        return run("git", "ls-files", "-co", "--exclude-standard", cwd=SOURCE).splitlines()
    found = (p.relative_to(SOURCE) for p in SOURCE.rglob("*") if p.is_file())
    return [str(p) for p in found if not p.parts[0].startswith("build")]


# Make all packages from a copy of the sources in a folder, as somebody else would.
def pack(folder, umask, **environment):
    for name in filter(lambda name: (SOURCE / name).exists(), sources()):
        (folder / "src" / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(SOURCE / name, folder / "src" / name)
    for preset in "package", "tarball":
        run("sh", "-ec", f"umask {umask}; cmake --preset {preset} -B ../{preset} "
            f"-DBUILD_TESTING=OFF; cmake --build ../{preset} -j2; cd ../{preset}; cpack -B ../out",
            cwd=folder / "src", env={**os.environ, "CCACHE_DISABLE": "1", **environment,
                                     "SOURCE_DATE_EPOCH": "1700000000"})


class Build(unittest.TestCase):
    def test_the_same_sources_give_the_same_bytes(self):
        shutil.rmtree(WORK, ignore_errors=True)
        pack(BUILT, "022", TZ="UTC")
        time.sleep(2)
        pack(WORK / "a longer name", "077", TZ="Asia/Tokyo", HOME="/nonexistent", LC_ALL="C")
        self.assertEqual({p.name for p in (BUILT / "out").iterdir() if p.is_file()}, {
            f"libvxcore-dev_{VERSION}-1_amd64.deb", f"libvxcore1_{VERSION}-1_amd64.deb",
            f"vxcore-{VERSION}-linux-x86_64.tar.gz", f"vxu-show-scenarios_{VERSION}-1_amd64.deb"})
        run("diff", "-x_CPack_Packages", "-r", BUILT / "out", WORK / "a longer name/out")


class Debian(unittest.TestCase):
    # Install, run, upgrade, run, remove, in a root of its own.
    def test_life_of_the_packages(self):
        root = WORK / "root"
        run("cpack", "-B", BUILT / "second", "-D", "CPACK_DEBIAN_PACKAGE_RELEASE=2",
            "-D", f"CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS=libvxcore1 (= {VERSION}-2)",
            cwd=BUILT / "package")
        shutil.rmtree(root, ignore_errors=True)
        for name in "info", "updates", "triggers":
            (root / "var/lib/dpkg" / name).mkdir(parents=True)
        (root / "var/lib/dpkg/status").touch()

        def files_after(*words):
            run(*AS_ROOT, "dpkg", "--root", root, "--force-depends", "--log=/dev/null", *words,
                env={**os.environ, "PATH": os.environ["PATH"] + ":/usr/sbin:/sbin"})
            return {str(p.relative_to(root)) for p in root.rglob("*")
                    if not p.is_dir() and "var/lib/dpkg" not in str(p)}

        for folder in "out", "second":
            files = files_after("-i", *(BUILT / folder).glob("*.deb"))
            self.assertLessEqual(INSTALLED, files)
            done = subprocess.run([root / "usr/bin/vxu_show_scenarios"], capture_output=True,
                                  text=True, env={"VX_WDIR": "/srv/a/work"})
            self.assertEqual((done.returncode, done.stdout[:6]), (255, "Usage:"))
        self.assertEqual(files_after("-P", "vxu-show-scenarios", "libvxcore-dev", "libvxcore1"),
                         set())

    def test_nothing_but_libc_is_needed_nor_much_room(self):
        for package in (BUILT / "out").glob("*.deb"):
            needs = re.sub(r"\(.*?\)| ", "", run("dpkg-deb", "-f", package, "Depends").strip())
            self.assertIn(needs, ("libc6", "libvxcore1,libc6-dev"), package)
            run("dpkg", "-x", package, WORK / "sizes")
        self.assertLess((WORK / "sizes/usr/bin/vxu_show_scenarios").stat().st_size, 100_000)
        archive, = (WORK / "sizes").rglob("libvxcore.a")
        self.assertLess(archive.stat().st_size, 250_000)

    @unittest.skipUnless(shutil.which("lintian"), "no lintian")
    def test_lintian_finds_nothing(self):
        run("lintian", "--fail-on", "error,warning", "--tag-display-limit", "0",
            *(BUILT / "out").glob("*.deb"))


# Ways of using the library; each program prints the tag "peak".
class Programs(unittest.TestCase):
    def prints(self, *command, **environment):
        self.assertEqual(run(*command, env={**os.environ, **environment}), "peak\n", command)

    def by_cmake(self, suffix, *options):
        folder, here = WORK / "user", SOURCE / "tests/package"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        shutil.copy(here / "user.cmake", folder / "CMakeLists.txt")
        shutil.copy(here / "user.c", folder / f"user.{suffix}")
        run("cmake", "-S", folder, "-B", folder / "b", f"-DSUFFIX={suffix}",
            "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", *options)
        run("cmake", "--build", folder / "b")
        self.prints(folder / "b/user")
        return folder / "b"

    def every_way(self, prefix, libdir):
        user, program = SOURCE / "tests/package/user.c", WORK / "program"
        for suffix in "c", "cpp":
            built = self.by_cmake(suffix, f"-DCMAKE_PREFIX_PATH={prefix};{libdir}/cmake")
            self.prints(built / "user_shared")
        path = {**os.environ, "PKG_CONFIG_PATH": str(libdir / "pkgconfig")}
        flags = run("pkg-config", "--cflags", "--libs", "vxcore", env=path).split()
        self.assertEqual(run("pkg-config", "--modversion", "vxcore", env=path).strip(), VERSION)
        for compiler in ["cc", "-std=c11"], ["c++", "-std=c++20", "-x", "c++"]:
            run(*compiler, "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror",
                user, "-x", "none", "-o", program, *flags)
            self.prints(program, LD_LIBRARY_PATH=str(libdir))
            self.assertIn("libvxcore.so.1", run("readelf", "-d", program))
        run("cc", user, f"-I{prefix}/include", libdir / "libvxcore.a", "-o", program)
        self.prints(program)
        self.assertEqual(ctypes.CDLL(libdir / "libvxcore.so.1").vx_is_numeric(b"2026"), 1)

    def test_from_an_installed_and_from_a_moved_tree(self):
        home, moved = WORK / "prefix", WORK / "moved_prefix"
        for libdir in "lib", "lib/x86_64-linux-gnu", str(home / "odd/lib64"):
            with self.subTest(libdir=libdir):
                for folder in home, moved:
                    shutil.rmtree(folder, ignore_errors=True)
                run("cmake", "-S", BUILT / "src", "-B", BUILT / "tarball",
                    f"-DCMAKE_INSTALL_PREFIX={home}", f"-DCMAKE_INSTALL_LIBDIR={libdir}")
                run("cmake", "--build", BUILT / "tarball", "-j2", "-t", "install")
                self.every_way(home, home / libdir)
                shutil.move(home, moved)
                self.every_way(moved, moved / (home / libdir).relative_to(home))

    def test_inside_another_project(self):
        built = self.by_cmake("c", f"-DVX_SOURCE={BUILT / 'src'}")
        mine, = (c for c in json.loads((built / "compile_commands.json").read_text())
                 if c["file"].endswith("user.c"))
        self.assertNotIn(" -W", mine["command"])
        self.assertNotIn("BUILD_TESTING", (built / "CMakeCache.txt").read_text())


class Interface(unittest.TestCase):
    def test_exported_is_recorded_is_declared(self):
        library = BUILT / "package/core/base/libvxcore/libvxcore.so.1"
        record = (SOURCE / "core/base/libvxcore/libvxcore.symbols").read_text()
        exported = sorted(run("nm", "-D", "--defined-only", "-j", library).split())
        declared = set()
        for header in HEADERS:
            run("cc", "-std=gnu11", "-fsyntax-only", "-aux-info", WORK / "functions", "-x", "c",
                "-I", SOURCE / "base/include", header)
            declared.update(re.findall(r"^/\* \S*/libvxcore/\S* \*/ extern .*?(\w+) \(",
                                       (WORK / "functions").read_text(), re.M))
            declared.update(re.findall(r"^extern [^;(]*?(\w+)(?:\[[^;]*)?;", header.read_text(),
                                       re.M))
        self.assertEqual(exported, re.findall(r"^ (\w+)@Base", record, re.M))
        self.assertEqual(exported, sorted(declared))
        self.assertLessEqual(max(re.findall(r"@Base ([\d.]+)", record)), VERSION)

    @unittest.skipUnless(shutil.which("abidiff"), "no abidiff")
    def test_nothing_moved(self):
        run(SOURCE / "scripts/abi")


class Project(unittest.TestCase):
    def test_one_version(self):
        log = (SOURCE / "CHANGELOG.md").read_text()
        self.assertIn((re.findall(r"^## \[(\d[\d.]*)\]", log, re.M) + [VERSION])[0], VERSION)


if __name__ == "__main__":
    unittest.main(verbosity=2)

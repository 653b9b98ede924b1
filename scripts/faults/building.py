"""One built copy of the tree for all, and what each worker keeps of its own: sources, objects,
libraries and the programs that are linked statically. Everything else is shared and never changes.
"""
import json
import os
import re
import shutil
import subprocess

OBJECTS = "src/CMakeFiles/zfc_objects.dir"
FLAGS = "-O1 -g0 -w"
COMPILE_LIMIT = 120


def run(command, folder, log):
    """Runs a command with its output in the file `log`; is it done?"""
    with open(log, "ab") as out:
        return subprocess.run(command, cwd=folder, stdout=out, stderr=out, stdin=subprocess.DEVNULL,
                              check=False).returncode == 0


def build_all(source, tree, log):
    """Copies `source` to `tree` and builds it with all that its tests need; the built tree."""
    shutil.rmtree(tree, ignore_errors=True)
    shutil.copytree(source, tree, symlinks=True, ignore=shutil.ignore_patterns("build", ".git"))
    linker = "-Wl,--enable-new-dtags" + (" -fuse-ld=lld" if shutil.which("ld.lld") else "")
    kinds = ("EXE", "SHARED", "MODULE")
    launchers = [f"-DCMAKE_{language}_COMPILER_LAUNCHER=ccache" for language in ("C", "CXX")
                 if shutil.which("ccache")]
    os.environ["CCACHE_BASEDIR"] = str(tree)
    configure = ["cmake", "-S", tree, "-B", tree / "build", "-G", "Ninja",
                 "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_C_COMPILER=gcc", "-DCMAKE_BUILD_TYPE=None",
                 f"-DCMAKE_CXX_FLAGS={FLAGS}", f"-DCMAKE_C_FLAGS={FLAGS}", "-DZFC_WERROR=OFF",
                 *launchers, *(f"-DCMAKE_{kind}_LINKER_FLAGS={linker}" for kind in kinds)]
    built = Built(tree)
    targets = ["zfc", "zfc_static", *(program.name for program in built.programs)]
    if not run(configure, tree, log) or not run(["ninja", *targets], tree / "build", log):
        raise SystemExit(f"error: the build failed; {log} says how")
    built.read_commands()
    return built


class Program:
    """A test program: its name, the room it tests, and how it is linked when statically."""

    def __init__(self, source):
        self.name, self.room, self.is_c = source.stem, source.parent.name, source.suffix == ".c"
        self.link = None
        self.limit = 0.0

    def command(self, built, own):
        place = own / "bin" if self.link else built.tree / "build" / "tests"
        options = [] if self.is_c else ["--gtest_brief=1", "--gtest_fail_fast"]
        return [str(place / self.name), *options]


class Built:
    """What the build system knows of a built tree."""

    def __init__(self, tree):
        self.tree, self.folder = tree, tree / "build"
        sources = sorted([*tree.glob("tests/*/*_test.cpp"), *tree.glob("tests/c/*_test.c")])
        self.programs = [Program(source) for source in sources]

    def ninja(self, *arguments):
        return subprocess.run(["ninja", "-t", *arguments], cwd=self.folder, check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def links_of(self, target):
        return self.ninja("commands", "-s", target).rstrip("\n")

    def read_commands(self):
        """How each object is compiled, what it includes, and how the libraries are linked."""
        with open(self.folder / "compile_commands.json", encoding="utf-8") as file:
            entries = json.load(file)
        self.compiling, self.users = {}, {}
        for entry in entries:
            match = re.search(rf" -o {re.escape(OBJECTS)}/(\S+\.o) ", entry["command"])
            if match:
                self.compiling[match[1]] = entry["command"]
        for block in self.ninja("deps").split("\n\n"):
            lines = block.strip().split("\n")
            name = lines[0].split(":")[0].removeprefix(OBJECTS + "/")
            for line in lines[1:] if name in self.compiling else []:
                path = os.path.normpath(self.folder / line.strip())
                self.users.setdefault(os.path.relpath(path, self.tree), []).append(name)
        self.shared = next(path.name for path in (self.folder / "src").glob("libzfc.so*")
                           if not path.is_symlink())
        self.link_shared = self.links_of("src/" + self.shared)
        self.archive = self.links_of("src/libzfc.a")
        for program in self.programs:
            link = self.links_of(f"tests/{program.name}")
            program.link = link if "src/libzfc.a" in link else None


class Own:
    """A worker's folder: the sources that it changes, and what it builds of them."""

    def __init__(self, built, folder):
        self.built, self.folder = built, folder
        shutil.rmtree(folder, ignore_errors=True)
        shutil.copytree(built.tree / "src", folder / "src")
        shutil.copytree(built.folder / OBJECTS, folder / "objects")
        for name in ("lib", "bin", "kept"):
            (folder / name).mkdir()
        shutil.copy(built.folder / "src" / built.shared, folder / "lib")
        self.log = folder / "commands.log"
        self.archived = False

    def shell(self, command):
        """A command of the shared build, done on this worker's files; is it done?"""
        tree, own = str(self.built.tree), str(self.folder)
        command = command.replace(f"{tree}/src", f"{own}/src").replace(OBJECTS, f"{own}/objects")
        command = re.sub(r"(?<![\w/])src/(libzfc\.(a|so\S*))", rf"{own}/lib/\1", command)
        command = re.sub(r" -o tests/", f" -o {own}/bin/", command)
        with open(self.log, "wb") as log:
            try:
                return subprocess.run(command, shell=True, cwd=self.built.folder, stdout=log,
                                      stderr=log, timeout=COMPILE_LIMIT, check=False,
                                      stdin=subprocess.DEVNULL).returncode == 0
            except subprocess.TimeoutExpired:
                return False

    def object(self, name):
        return self.folder / "objects" / name

    def compile_users(self, path):
        """Compiles anew what includes `path`, keeping the right objects aside: "" when the objects
        differ, else why there is nothing to test."""
        names = self.built.users.get(path, [])
        for name in names:
            (self.folder / "kept" / name).parent.mkdir(parents=True, exist_ok=True)
            os.replace(self.object(name), self.folder / "kept" / name)
            if not self.shell(self.built.compiling[name]):
                return "does not compile"
        same = all(self.object(name).read_bytes() == (self.folder / "kept" / name).read_bytes()
                   for name in names)
        return "same code" if same else ""

    def put_objects_back(self, path):
        for name in self.built.users.get(path, []):
            if (self.folder / "kept" / name).exists():
                os.replace(self.folder / "kept" / name, self.object(name))

    def link_library(self):
        self.archived = False
        return self.shell(self.built.link_shared)

    def link_program(self, program):
        """Only programs of the static library are linked anew, and it only for them."""
        if program.link is None:
            return True
        if not self.archived:
            self.archived = self.shell(self.built.archive)
        return self.archived and self.shell(program.link)

#!/usr/bin/env python3
"""Proves the tests of one folder of src/: changes a line of code and looks whether a test notices.

usage: mutate.py FOLDER [--seed N] [--count N] [--jobs N] [--stages N] [--only N,N...] [--list]
                 [--work DIR] [--allow FILE]

Each mutant is a line of code drawn by the seed and one change to it. It is built in a copy of the
last commit and runs in tools/isolated.sh, with limits on its time, memory and files. A mutant is
killed when a test fails, or takes ten times as long as it should: first the folder's own tests,
then the tests of other folders that contain the mutated code, then the end-to-end tests; --stages
stops after so many of the three. A mutant that doesn't compile isn't counted, another is drawn.
--only runs just those numbers of the draw, --list shows the draw. DIR keeps copy and build for
later runs.

FILE (tools/mutants_allowed.txt) excuses mutants that no input can tell from the program, one a
line: "file: original text => mutated text: reason". A text that the file has more than once needs
what is in front of it: "file: lines in front >> original text => ...". Status 1 when another one
survived or when more than 5 % are excused.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
import mutants  # noqa: E402

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))

# --- How it is built and run -------------------------------------------------------------------

# Below -O2 only the changed file: all others come from the compiler cache of ordinary builds.
LAUNCHER = "#!/bin/sh\nexec {cache} \"$@\" $TIV_MUTANT_FLAGS\n"
MUTANT_FLAGS = "-O0 -w"
# In the private namespace: /tmp in memory with the copy in it, all that is not private read-only,
# /dev too, and a process tree that ends whole.
INSIDE = """cd "$1" && mount -t tmpfs -o size=2g tiv-mutants /tmp && mkdir -p "$1" &&
mount -c --bind . "$1" && cd /tmp && shift || exit 99
while read -r source at type _; do
    case $source:$type in
        tiv-* | *:proc | *:sysfs | *:devpts) ;;
        *) mount -o remount,bind,ro "$at" ;;
    esac
done </proc/mounts 2>/dev/null
exec prlimit --as=17179869184 --fsize=1073741824 --core=0 \
unshare --pid --fork --kill-child --mount-proc sh -c '"$@"; exit $?' sh "$@"
"""
EACH_ALONE = 'program=$1; shift; for test; do "$program" --gtest_filter="$test" || exit 1; done'
STAGES = ("unit", "neighbours", "end-to-end")
END_TO_END = ("e2e", "test_e2e")


def end_group(process):
    """Ends whatever is left of the process group."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


class Bench:
    """The copy of the tree, its build, and the test programs in it."""

    def __init__(self, work, jobs):
        self.work, self.jobs = work, jobs
        self.tree = os.path.join(work, "tree")
        self.build_dir = os.path.join(self.tree, "build", "release")
        self.baselines = {}

    def copy(self):
        if not os.path.isdir(self.tree):
            subprocess.run(["git", "clone", "-q", "--shared", ROOT, self.tree], check=True)
        git = ["git", "-C", self.tree]
        subprocess.run(git + ["fetch", "-q", "origin", "HEAD"], check=True)
        subprocess.run(git + ["checkout", "-q", "--force", "--detach", "FETCH_HEAD"], check=True)

    def configure(self):
        launcher = os.path.join(self.work, "launcher")
        with open(launcher, "w", encoding="utf-8") as script:
            script.write(LAUNCHER.format(cache=shutil.which("ccache") or "env"))
        os.chmod(launcher, 0o755)
        options = [f"-DCMAKE_{language}_COMPILER_LAUNCHER={launcher}" for language in ("C", "CXX")]
        if shutil.which("ld.lld"):
            options += [f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld=lld" for kind in ("EXE", "SHARED")]
        subprocess.run(["cmake", "--preset", "release", "-DTIV_BENCH=OFF", *options],
                       cwd=self.tree, check=True, stdout=subprocess.DEVNULL)

    def programs(self, folder):
        """(folder, name) of the test programs in tests/FOLDER."""
        base, found = os.path.join(self.tree, "tests", folder), []
        for name in sorted(os.listdir(base)):
            if name == "CMakeLists.txt" or name.endswith(".cmake"):
                with open(os.path.join(base, name), encoding="utf-8") as listing:
                    found += re.findall(r"^tiv_test\((\w+)", listing.read(), re.MULTILINE)
        return [(folder, name) for name in found]

    def contains(self, program, folder):
        """Whether sources of src/FOLDER go into a program."""
        done = subprocess.run(["ninja", "-C", self.build_dir, "-t", "inputs", program[1]],
                              stdout=subprocess.PIPE, text=True, check=True)
        return bool(re.search(rf"(^|/)src/{folder}/.*\.(cpp|o)$", done.stdout, re.MULTILINE))

    def neighbours(self, folder):
        """Programs of the other folders that contain this one, lower floors first."""
        with open(os.path.join(self.tree, "CMakeLists.txt"), encoding="utf-8") as listing:
            folders = re.findall(r"add_subdirectory\(src/(\w+)\)", listing.read())
        return [program for other in folders if other != folder
                for program in self.programs(other) if self.contains(program, folder)]

    def path(self, program):
        return os.path.join(self.build_dir, "tests", *program)

    def build(self, programs, flags=MUTANT_FLAGS):
        """The output of the build; None when it succeeded."""
        environment = {**os.environ, "TIV_MUTANT_FLAGS": flags,
                       "CCACHE_BASEDIR": self.tree, "CCACHE_NOHASHDIR": "1",
                       "CCACHE_SLOPPINESS": "include_file_ctime,include_file_mtime"}
        process = subprocess.Popen(
            ["ninja", "-C", self.build_dir, f"-j{self.jobs}", *(name for _, name in programs)],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
            env=environment, start_new_session=True)
        try:
            output = process.communicate()[0]
        finally:
            # A compiler that outlived an interruption would file the restored source as the mutant.
            end_group(process)
        return None if process.returncode == 0 else output

    def run(self, command, seconds):
        """(status, output) of a command in the namespace; status None when it took too long."""
        isolated = [os.path.join(self.tree, "tools", "isolated.sh"), "sh", "-c", INSIDE, "sh"]
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(isolated + [self.work, *command], stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=output, start_new_session=True)
            try:
                status = process.wait(seconds)
            except subprocess.TimeoutExpired:
                status = None
            finally:
                end_group(process)
            output.seek(max(0, output.seek(0, os.SEEK_END) - 1000000))
            return status, output.read().decode(errors="replace")

    def command(self, program, alone):
        if not alone:
            return [self.path(program), "--gtest_fail_fast"]
        suite, names = "", []
        listed = self.run([self.path(program), "--gtest_list_tests"], 60)[1]
        for line in listed.splitlines():
            name = line.split("#")[0].rstrip()
            if not name.startswith(" "):
                suite = name
            elif "DISABLED_" not in suite + name:
                names.append(suite + name.strip())
        return ["sh", "-c", EACH_ALONE, "sh", self.path(program), *names]

    def baseline(self, program):
        """(command, seconds) with which the tests pass: in one process, else each in its own."""
        for alone in (False, True):
            command = self.command(program, alone)
            start = time.monotonic()
            if all(self.run(command, 1800)[0] == 0 for _ in range(2)):
                return command, (time.monotonic() - start) / 2
        sys.exit(f"{program[1]} fails without a mutant:\n" + self.run(command, 1800)[1][-4000:])

    def measure(self, programs):
        fresh = [program for program in programs if program not in self.baselines]
        output = self.build(fresh, "") if fresh else None
        if output:
            sys.exit(output)
        for program in fresh:
            self.baselines[program] = self.baseline(program)

    def killer(self, program):
        """The test that fails or hangs; empty when all pass."""
        command, seconds = self.baselines[program]
        status, output = self.run(command, max(10 * seconds, 5))
        if status == 0:
            return ""
        failed = re.search(r"^\[  FAILED  \] ([\w/.]+)", output, re.MULTILINE)
        started = re.findall(r"^\[ RUN      \] ([\w/.]+)", output, re.MULTILINE)
        how = {None: " (too long)"}.get(status, "" if failed else f" (status {status})")
        test = failed.group(1) if failed else started[-1] if started else "its start"
        return f"{program[1]} {test}{how}"

    def write(self, mutant, lines):
        """Puts lines in place of the mutant's; the lines that were there."""
        path = os.path.join(self.tree, mutant.file)
        with open(path, encoding="utf-8") as source:
            text = source.read().split("\n")
        place = slice(mutant.line - 1, mutant.line - 1 + len(lines))
        before, text[place] = text[place], lines
        with open(path, "w", encoding="utf-8") as source:
            source.write("\n".join(text))
        return before

    def try_stage(self, mutant, programs):
        """The killer; empty when the mutant lives, None when it doesn't compile."""
        before = self.write(mutant, mutant.lines)
        try:
            for program in programs:
                if self.build([program]):
                    return None
                killer = self.killer(program)
                if killer:
                    return killer
            return ""
        finally:
            self.write(mutant, before)


# --- What is reported --------------------------------------------------------------------------

def read_allowed(path):
    with open(path, encoding="utf-8") as listing:
        return [line.strip() for line in listing if line.strip() and not line.startswith("#")]


def places(lines, text):
    """The numbers of the lines where the code of an excuse begins; `text` is all in front of "=>"."""
    front, _, original = text.rpartition(" >> ")
    front = front.split(" / ") if front else []
    texts = front + original.split(" / ")
    return [at + len(front) + 1 for at in range(len(lines))
            if lines[at:at + len(texts)] == texts]


def is_allowed(mutant, allowed, lines):
    """Whether a line of the list names the mutant of a file and no other place in it."""
    lines = [" ".join(line.split()) for line in lines]
    for line in allowed:
        text, _, rest = line.partition(" => ")
        name, _, text = text.partition(": ")
        if (name == mutant.file and text.rpartition(" >> ")[2] == mutant.original
                and rest.startswith(f"{mutant.mutated}: ")
                and places(lines, text) == [mutant.line]):
            return True
    return False


def tell(mutant, verdict):
    print(f"#{mutant.number} {mutant.file}:{mutant.line} {mutant.operator}: "
          f"{mutant.original} => {mutant.mutated}: {verdict}", flush=True)


def score(folder, killed, allowed, survived):
    """Prints the score; whether it will do."""
    total = sum(killed.values()) + allowed + survived
    dead = sum(killed.values())
    stages = ", ".join(f"{stage} {killed[stage]}" for stage in STAGES)
    print(f"{folder}: {dead} of {total} killed ({stages}), {survived} survived, {allowed} allowed")
    print(f"{folder}: {100 * dead / max(total, 1):.1f} %, "
          f"without the allowed {100 * dead / max(total - allowed, 1):.1f} %")
    return survived == 0 and allowed * 20 <= total


def judge(bench, mutant, stages):
    """(stage, killer) of a mutant; stage empty when it lives, None when it doesn't compile."""
    for stage, programs in stages:
        bench.measure(programs)
        killer = bench.try_stage(mutant, programs)
        if killer is None:
            return None, ""
        if killer:
            return stage, killer
    return "", ""


def hunt(bench, arguments):
    folder, allowed = arguments.folder, read_allowed(arguments.allow)
    stages = list(zip(STAGES, (bench.programs(folder), bench.neighbours(folder), [END_TO_END])))
    stages = stages[:arguments.stages]
    killed, excused, survived = dict.fromkeys(STAGES, 0), 0, 0
    sources = mutants.read_sources(bench.tree, folder)
    lines = {source.name: source.lines for source in sources}
    for mutant in mutants.draw(sources, arguments.seed):
        if sum(killed.values()) + excused + survived == arguments.count:
            break
        if arguments.only and mutant.number not in arguments.only:
            if mutant.number > max(arguments.only):
                break
            continue
        stage, killer = judge(bench, mutant, stages)
        if stage:
            killed[stage] += 1
            tell(mutant, f"killed by {killer} ({stage})")
        elif stage is not None:
            excuse = is_allowed(mutant, allowed, lines[mutant.file])
            excused, survived = excused + excuse, survived + (not excuse)
            tell(mutant, "allowed" if excuse else "SURVIVED")
    return score(folder, killed, excused, survived)


def read_arguments():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n\n")[0])
    parser.add_argument("folder")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--stages", type=int, choices=(1, 2, 3), default=3)
    parser.add_argument("--only", type=lambda text: {int(word) for word in text.split(",")})
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--work")
    parser.add_argument("--allow", default=os.path.join(ROOT, "tools", "mutants_allowed.txt"))
    return parser.parse_args()


def main():
    arguments = read_arguments()
    if arguments.list:
        for mutant in mutants.draw(mutants.read_sources(ROOT, arguments.folder), arguments.seed):
            if mutant.number > arguments.count:
                break
            tell(mutant, "drawn")
        return 0
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit("interrupted"))
    with tempfile.TemporaryDirectory(prefix="tiv_mutants_") as fresh:
        bench = Bench(os.path.realpath(arguments.work or fresh), arguments.jobs)
        os.makedirs(bench.work, exist_ok=True)
        bench.copy()
        bench.configure()
        return 0 if hunt(bench, arguments) else 1


if __name__ == "__main__":
    sys.exit(main())

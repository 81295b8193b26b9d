#!/usr/bin/env python3
"""mutation.py [--sample N] [--seed N] [--share PERCENT] [--quick] [SOURCE...]: whether the tests see a changed line.

Changes one place of the logic at a time: a comparison, an operator, a number, a condition, a statement. Compiles that one source
anew, links its library with it in a place of its own, and runs the tests of the folder with that library: those of the source
first, then the others, at last those that take seconds. A change that none of them sees survives. One that does not compile, or of
which the compiler makes the same code, is none. Survivors that change nothing a caller could see stand in
tests/mutation/survivors.txt, with the reason; so does no line that the sources don't have any more.

Needs a build of the preset "release" with its tests. Prints each change, then how many died, and exits with 1 if that is less
than the share (97 % if none is given) or a known survivor is gone."""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import queue
import random
import re
import resource
import shlex
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/release"
SURVIVORS = ROOT / "tests/mutation/survivors.txt"
MEMORY = 8 << 30
SLOW_SECONDS = 300

# The logic, and the program of its tests.
PROGRAMS = {
    "Base/text/*.cpp": "text_tests",
    "Base/text/detail/*.cpp": "text_tests",
    "Base/messages/**/*.cpp": "messages_tests",
    "Base/memory/**/*.cpp": "memory_tests",
    "Base/switches/*.cpp": "switches_tests",
    "Base/crash/CrashConfig.cpp": "crash_tests",
    "ZLiteXML/*.cpp": "zlitexml_tests",
    "ZLiteXML/detail/*.cpp": "zlitexml_tests",
    "ZLiteXML/detail/linux/*.cpp": "zlitexml_tests",
}
# What a program runs here, if not all: the rest takes minutes and is of other files.
ONLY = {"crash_tests": "CrashConfig*:CrashContract*"}
# What takes seconds, such as every text of three octets, runs only for what survives the rest, and only for its sources.
SLOW = {
    "Utf8DecodingModel.*:Utf8EncodingModel.*": r"/text/.*(Utf8|Unicode|Kernels)",
    "*/EncodingsOfTheSystem.*:MultibyteConversions.EmptyText*:MultibyteConversions.Threads*:MultibyteConversionsVietnamese.*":
        r"/text/.*Multibyte",
    "GuidMadeAnew.*:Guid.EverySingle*": r"/text/(Guid|Udid)",
    "LockThreads.*:LockFreeBufferThreads.*:Detachment.*:RefusedChunks.*": r"/memory/",
    "MessageXmlHostile.*:MessageFormatOfADeepTree.*:MessageXmlRoundTrip.Random*": r"/messages/",
    "Documents/*:HostileDocument.*:Writer.TakesTheNames*": r"ZLiteXML/",
}

# What stands between two blanks is an operator; clang-format sees to it.
BINARY = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+", "*": "+",
    "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=",
}
STATEMENT = re.compile(r"^\s+(?!return\b|delete\b|throw\b|using\b|const\b|auto\b|else\b)[\w.:>()*\[\]-]+(\(.*\)| [+|&-]?= .*);$")
BLANKED = (r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\\n])+\'|^#(?:\\\n|[^\n])*'
           r'|^ *static_assert\(.*?;')

Mutant = collections.namedtuple("Mutant", "source line column old new")


def code_of(text):
    """The text with comments, literals and what the preprocessor reads as blanks; every other place stays where it is."""
    return re.sub(BLANKED, lambda found: re.sub(r"[^\n]", " ", found[0]), text, flags=re.S | re.M)


def lines_of(source):
    return (ROOT / source).read_text(encoding="utf-8").split("\n")


def mutants_of(source):
    whole_lines = lines_of(source)
    for number, (line, whole) in enumerate(zip(code_of("\n".join(whole_lines)).split("\n"), whole_lines)):

        def change(start, end, new, number=number, whole=whole):
            return Mutant(source, number, start, whole[start:end], new)

        for found in re.finditer(r"(?<= )(\S{1,2})(?= )", line):
            if found[0] in BINARY:
                yield change(*found.span(), BINARY[found[0]])
        for found in re.finditer(r"\+\+|--", line):
            yield change(*found.span(), "--" if found[0] == "++" else "++")
        for found in re.finditer(r"(?<![\w.'])(?<![eE][-+])(0x[0-9A-Fa-f']+|\d[\d']*)(?=[uUlL]*\b)(?![\w.]*\.)", line):
            yield change(*found.span(), "1" if found[0] == "0" else f"({found[0]} + 1)")
        for found in re.finditer(r"\b(true|false)\b", line):
            yield change(*found.span(), "false" if found[0] == "true" else "true")
        for found in re.finditer(r"(?<=[ (])!(?=[\w(])", line):
            yield change(*found.span(), "")
        for found in re.finditer(r"\b(?:if|while) \((?!const |auto |constexpr )(.*)\)(?= \{?|$)", line):
            if found[1].count("(") == found[1].count(")") and ";" not in found[1]:
                yield change(*found.span(1), f"!({whole[found.start(1):found.end(1)]})")
        if STATEMENT.match(line):
            yield change(len(line) - len(line.lstrip()), len(whole), ";")


def changed_line(mutant):
    line = lines_of(mutant.source)[mutant.line]
    assert line[mutant.column:].startswith(mutant.old), (mutant, line)
    return line[:mutant.column] + mutant.new + line[mutant.column + len(mutant.old):]


def key_of(mutant):
    return mutant.source, lines_of(mutant.source)[mutant.line].strip(), changed_line(mutant).strip()


def text_of(key):
    source, line, changed = key
    return f"{source}: {line} => {changed}"


def known_survivors():
    """The changes that may survive, as (source, line of code, changed line)."""
    known = set()
    for line in SURVIVORS.read_text(encoding="utf-8").splitlines() if SURVIVORS.exists() else []:
        if line and not line.startswith(("#", " ")):
            source, change = line.split(": ", 1)
            known.add((source, *change.split(" => ", 1)))
    return known


def commands_of_ninja(target):
    return subprocess.run(["ninja", "-C", BUILD, "-t", "commands", target], check=True, capture_output=True, text=True).stdout


class Library:
    """How a library is linked, and where its objects come from."""

    def __init__(self, target):
        linked = [line for line in commands_of_ninja(target).splitlines() if " -shared " in line][-1]
        self.command = shlex.split(re.sub(r"^: && | && :?$", "", linked))
        self.name = next(word.split(",")[-1] for word in self.command if word.startswith("-Wl,-soname,"))

    def link(self, old, new, directory):
        command = [str(new) if word == old else word for word in self.command]
        command[command.index("-o") + 1] = str(directory / self.name)
        return subprocess.run([*command, "-Wl,--strip-debug"], cwd=BUILD, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0


class Logic:
    """The sources with how each is compiled, and the limits of each program's tests."""

    def __init__(self, sources):
        self.libraries = {top: Library(f"{top}/lib{name}.so") for top, name in [("Base", "ZBase"), ("ZLiteXML", "ZLiteXML")]
                          if any(source.startswith(top) for source in sources)}
        # Programs compile some of the sources for themselves too.
        linked = {word for library in self.libraries.values() for word in library.command}
        self.commands = {}
        for entry in json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8")):
            source, command = os.path.relpath(entry["file"], ROOT), shlex.split(entry["command"])
            if source in sources and command[command.index("-o") + 1] in linked:
                self.commands[source] = command
        if set(self.commands) != set(sources):
            sys.exit(f"mutation.py: not in the libraries: {', '.join(sorted(set(sources) - set(self.commands)))}")
        self.original = {}
        self.took = {}

    def compile(self, source, text, directory):
        """The object, or none where the text does not compile. Without what names its lines, so that the same code is the same."""
        changed, object_file = directory / pathlib.Path(source).name, directory / "changed.o"
        changed.write_text(text, encoding="utf-8")
        command = [word for word in self.commands[source] if word not in ("-g", "-Werror")]
        command = ["-O1" if word == "-O2" else word for word in command]
        command[command.index("-o") + 1] = str(object_file)
        command[command.index("-c") + 1] = str(changed)
        done = subprocess.run([*command, "-w", f"-iquote{(ROOT / source).parent}", f"-ffile-prefix-map={directory}=."], cwd=BUILD,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return object_file if done.returncode == 0 else None

    def object_of(self, source):
        command = self.commands[source]
        return command[command.index("-o") + 1]


def run_tests(program, tests, directory, seconds):
    """Whether they pass in that time of the processor. One that waits for ever is given five times that on a clock, and again,
    since the clock goes on while a machine stands still."""
    def limited():
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))

    command = [BUILD / "tests" / program, "--gtest_brief=1", "--gtest_fail_fast", f"--gtest_filter={tests}"]
    for _ in range(2):
        with tempfile.TemporaryDirectory() as scratch:
            environment = {**os.environ, "LD_LIBRARY_PATH": str(directory), "TMPDIR": scratch}
            with subprocess.Popen(command, cwd=BUILD / "tests", preexec_fn=limited, env=environment, stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True) as running:
                try:
                    return running.wait(5 * seconds + 60) == 0
                except subprocess.TimeoutExpired:
                    pass
                finally:
                    try:
                        os.killpg(running.pid, 9)
                    except ProcessLookupError:
                        pass
    return False


def quick_tests(source, program, only):
    """Filters of tests, one after the other."""
    stem = pathlib.Path(source).stem
    if only or program in ONLY:
        return [only or ONLY[program]]
    return [f"{stem}*:*/{stem}*-{':'.join(SLOW)}", f"*-{':'.join(SLOW)}"]


def slow_tests(source, program, only):
    return [] if only or program in ONLY else [tests for tests, sources in SLOW.items() if re.search(sources, source)]


def judge(mutant, program, logic, directory, filters, seconds):
    """Whether the change dies, survives, or is none."""
    lines = lines_of(mutant.source)
    lines[mutant.line] = changed_line(mutant)
    object_file = logic.compile(mutant.source, "\n".join(lines), directory)
    if object_file is None or object_file.read_bytes() == logic.original[mutant.source]:
        return "same"
    library = logic.libraries[mutant.source.split("/")[0]]
    if not library.link(logic.object_of(mutant.source), object_file, directory):
        return "same"
    try:
        passed = all(run_tests(program, tests, directory, seconds) for tests in filters)
        return "survived" if passed else "died"
    finally:
        (directory / library.name).unlink()


def options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sample", type=int, default=0, help="so many of the changes, by chance")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--share", type=float, default=97.0)
    parser.add_argument("--quick", action="store_true", help="without the tests that take seconds")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--tests", metavar="FILTER", help="only these tests are run")
    parser.add_argument("sources", nargs="*")
    return parser.parse_args()


def programs_of_sources(given):
    found = {}
    for pattern, program in PROGRAMS.items():
        for path in ROOT.glob(pattern):
            found[str(path.relative_to(ROOT))] = program
    unknown = set(given) - set(found)
    if unknown:
        sys.exit(f"mutation.py: not of the logic: {', '.join(sorted(unknown))}")
    return {source: found[source] for source in given or sorted(found)}


def prepare(logic, programs, only, jobs):
    """Each source compiled as it is, and how long the tests of each program take with that."""
    def compiled(source):
        with tempfile.TemporaryDirectory(prefix="zbase-mutation-") as place:
            object_file = logic.compile(source, "\n".join(lines_of(source)), pathlib.Path(place))
            return source, object_file and object_file.read_bytes()

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        logic.original = dict(pool.map(compiled, programs))
    for source, octets in logic.original.items():
        if octets is None:
            sys.exit(f"mutation.py: {source} does not compile as it is")
    with tempfile.TemporaryDirectory(prefix="zbase-mutation-") as place:
        for source in {source.split("/")[0]: source for source in programs}.values():
            object_file = logic.compile(source, "\n".join(lines_of(source)), pathlib.Path(place))
            if not logic.libraries[source.split("/")[0]].link(logic.object_of(source), object_file, pathlib.Path(place)):
                sys.exit(f"mutation.py: {source} does not link as it is")
    for program in sorted(set(programs.values())):
        before, began = os.times(), time.monotonic()
        tests = only or ONLY.get(program) or f"*-{':'.join(SLOW)}"
        if not run_tests(program, tests, BUILD / "Base", SLOW_SECONDS):
            sys.exit(f"mutation.py: {program} fails as it is")
        after = os.times()
        used = after.children_user + after.children_system - before.children_user - before.children_system
        logic.took[program] = int(3 * used) + 10
        print(f"{program}: {used:.0f} s of the processor, {time.monotonic() - began:.0f} s by the clock", flush=True)


def main():
    given = options()
    programs = programs_of_sources(given.sources)
    mutants = [mutant for source in programs for mutant in mutants_of(source)]
    known = known_survivors()
    gone = known - {key_of(mutant) for mutant in mutants} if not given.sources else set()
    for survivor in sorted(gone):
        print("known, and not there any more: " + text_of(survivor))
    if given.sample:
        mutants = random.Random(given.seed).sample(mutants, min(given.sample, len(mutants)))

    programs = {mutant.source: programs[mutant.source] for mutant in mutants}
    logic = Logic(set(programs))
    prepare(logic, programs, given.tests, given.jobs)
    with tempfile.TemporaryDirectory(prefix="zbase-mutation-") as place:
        places = queue.SimpleQueue()
        for number in range(given.jobs):
            (pathlib.Path(place) / str(number)).mkdir()
            places.put(pathlib.Path(place) / str(number))

        def tried(mutant, filters_of, seconds):
            directory, program = places.get(), programs[mutant.source]
            try:
                filters = filters_of(mutant.source, program, given.tests)
                return mutant, judge(mutant, program, logic, directory, filters, seconds or logic.took[program])
            finally:
                places.put(directory)

        def try_all(some, filters_of, seconds):
            ended = {}
            running = [pool.submit(tried, mutant, filters_of, seconds) for mutant in some]
            for number, done in enumerate(concurrent.futures.as_completed(running), 1):
                mutant, what = done.result()
                ended[mutant] = "known" if what == "survived" and key_of(mutant) in known else what
                print(f"[{number}/{len(some)}] {ended[mutant]} {mutant.source}:{mutant.line + 1}: {mutant.old} -> {mutant.new}", flush=True)
            return ended

        with concurrent.futures.ThreadPoolExecutor(given.jobs) as pool:
            ended = try_all(mutants, quick_tests, None)
            again = [mutant for mutant, what in ended.items()
                     if what == "survived" and slow_tests(mutant.source, programs[mutant.source], given.tests)]
            if again and not given.quick:
                print("What survived, before the tests that take seconds:", flush=True)
                ended.update(try_all(again, slow_tests, SLOW_SECONDS))

    count = collections.Counter(ended.values())
    survivors = sorted(f"line {mutant.line + 1} of {text_of(key_of(mutant))}" for mutant, what in ended.items() if what == "survived")
    for survivor in survivors:
        print(f"survived: {survivor}")
    changed = count["died"] + count["survived"]
    share = 100 * count["died"] / changed if changed else 0.0
    print(f"{len(mutants)} changes: {count['same']} change nothing, {count['died']} died, {count['survived']} survived, "
          f"{count['known']} survive with a reason: {share:.1f} % died")
    sys.exit(1 if share < given.share or gone else 0)


if __name__ == "__main__":
    main()

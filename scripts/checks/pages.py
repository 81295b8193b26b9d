#!/usr/bin/env python3
"""pages.py [--build DIRECTORY] [PAGE...]: compiles and runs what the pages show, README.md and those of docs unless others are
named, with the library and the command of a build (build/release).

In a page
  ```cpp      is run: as it is if it has a main, else as the body of a function. Each block runs as a process of its own, in
              a directory that the blocks of a page share. It has to end with 0.
  ```console  has commands behind "$ ", which are run by a shell that finds `zbase`, and what they print.
  ```text     directly behind either is what the program prints.
"..." in what is printed stands for anything within the line, and alone in a line for any lines. Other blocks are for reading.

In front of a ```cpp block a comment that readers don't see can say more
  <!-- declarations -->   the block stands outside of a function, and those behind it in the page may use it
  <!-- before             code in front of the block's own
  CODE -->
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SECONDS = 60  # for one command
FLAGS = ["-std=c++20", "-O0", "-g1", "-Wall", "-Wextra", "-Werror", "-fnon-call-exceptions"]
HEADERS = ["Base/ZBase.h", "algorithm", "cstdio", "cstring", "fstream", "functional", "iostream", "map", "memory", "mutex",
           "set", "string", "string_view", "thread", "unordered_map", "utility", "vector"]


class Block:
    def __init__(self, language, line):
        self.language = language
        self.line = line  # of its first line in the page, from 1
        self.lines = []
        self.mark = ""  # the comment in front of it
        self.printed = None  # lines

    def text(self):
        return "\n".join(self.lines)

    def is_program(self):
        return re.search(r"^int main\(", self.text(), re.M) is not None


def read_blocks(page):
    """The blocks of a page, each with the comment in front of it and with what it prints."""
    blocks, block, mark, comment = [], None, "", None
    direct = False  # nothing but empty lines since the last block
    for number, line in enumerate(page.read_text(encoding="utf-8").split("\n"), 1):
        if block is not None:
            if line.strip() == "```":
                if block.language == "text" and direct and blocks and blocks[-1].language in ("cpp", "console"):
                    blocks[-1].printed = block.lines
                else:
                    blocks.append(block)
                block, direct = None, True
            else:
                block.lines.append(line)
        elif comment is not None:
            if "-->" in line:
                comment.append(line.split("-->")[0])
                mark, comment = "\n".join(comment), None
            else:
                comment.append(line)
        elif fence := re.fullmatch(r"```(\w*)", line):
            block, block.mark, mark = Block(fence[1], number + 1), mark, ""
            direct = direct and block.language == "text"
        elif line.startswith("<!--"):
            if "-->" in line:
                mark = line[4:].split("-->")[0].strip()
            else:
                comment = [line[4:].strip()]
        elif line.strip():
            mark, direct = "", False
    if block is not None:
        raise SystemExit(f"{page}:{block.line}: a block without an end")
    return blocks


def matches(expected, printed):
    """Whether lines are as expected, "..." standing for anything."""
    pattern = ""
    for line in expected:
        if line == "...":
            pattern += r"(?:[^\n]*\n)*"
        else:
            pattern += ".*".join(re.escape(part) for part in line.rstrip().split("...")) + r"[ ]*\n"
    return re.fullmatch(pattern, "".join(line + "\n" for line in printed)) is not None


class Page:
    def __init__(self, path, build, scratch):
        self.path = path
        self.name = os.path.relpath(path, ROOT)
        self.build = build
        self.place = scratch / self.name.replace("/", "_").removesuffix(".md")
        self.include = scratch / "include"
        self.failures = []
        self.blocks = read_blocks(path)
        self.ran = 0

    def fail(self, block, what):
        self.failures.append(f"{self.name}:{block.line}: {what}")

    def compile(self, block, source, program):
        file = self.place / (program.name + ".cpp")
        file.write_text(source, encoding="utf-8")
        libraries = [self.build / "Base", self.build / "ZLiteXML"]
        command = ["g++", *FLAGS, f"-I{self.include}", f"-I{ROOT}", str(file), "-o", str(program)]
        for library in libraries:
            command += [f"-L{library}", f"-Wl,-rpath,{library}"]
        done = subprocess.run([*command, "-lZLiteXML", "-lZBase"], capture_output=True, text=True)
        if done.returncode != 0:
            self.fail(block, "does not compile\n" + done.stderr)
        return done.returncode == 0

    def run(self, block, command, expected):
        environment = dict(os.environ, LC_ALL="C.UTF-8", TERM="dumb")
        environment["PATH"] = f"{self.build / 'tools/zbase'}:{environment['PATH']}"
        directory = self.place / "run"
        directory.mkdir(exist_ok=True)
        self.ran += 1
        try:
            done = subprocess.run(command, cwd=directory, env=environment, stdin=subprocess.DEVNULL, timeout=SECONDS,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8", errors="replace")
        except subprocess.TimeoutExpired:
            self.fail(block, f"did not end within {SECONDS} s")
            return
        if block.language == "cpp" and done.returncode != 0:
            self.fail(block, f"ended with {done.returncode}\n{done.stdout}")
            return
        printed = [line.rstrip() for line in done.stdout.split("\n")]
        while printed and not printed[-1]:
            printed.pop()
        while expected and not expected[-1].strip():
            expected = expected[:-1]
        if not matches(expected, printed):
            self.fail(block, "prints something else than shown:\n" + "\n".join(printed))

    def check(self):
        """Compiles all, then runs the blocks in their order."""
        self.place.mkdir()
        commands = self.compile_functions()
        for number, block in enumerate(self.blocks):
            if block.language == "cpp" and block.is_program():
                program = self.place / f"program{number}"
                if self.compile(block, block.text() + "\n", program):
                    commands[block] = [str(program)]
        for block in self.blocks:
            if block.language == "console":
                self.run_console(block)
            elif block in commands:
                self.run(block, commands[block], block.printed or [])
        return self

    def compile_functions(self):
        """Makes one source of all blocks that are no programs; gives the command of each."""
        blocks = [block for block in self.blocks if block.language == "cpp" and not block.is_program()]
        source = [f"#include <{header}>" for header in HEADERS]
        functions = []
        main = ["int main(int, char** arguments) {", "const std::string block = arguments[1];"]
        commands = {}
        program = self.place / "functions"
        for number, block in enumerate(blocks):
            where = f'#line {block.line} "{self.path}"'
            source += [line for line in block.lines if line.startswith("#include")]
            lines = ["" if line.startswith("#include") else line for line in block.lines]
            if block.mark == "declarations":
                functions += [where, *lines]
                continue
            before = block.mark.removeprefix("before") if block.mark.startswith("before") else ""
            functions += [where, f"static void Block{number}() {{", before, where, *lines, "}"]
            main.append(f'if (block == "{number}") Block{number}();')
            commands[block] = [str(program), str(number)]
        if blocks and not self.compile(blocks[0], "\n".join([*source, *functions, *main, "}", ""]), program):
            return {}
        return commands

    def run_console(self, block):
        commands = []
        for line in block.lines:
            if line.startswith("$ "):
                commands.append((line[2:], []))
            elif commands:
                commands[-1][1].append(line)
            else:
                self.fail(block, "begins with no command")
                return
        for command, expected in commands:
            self.run(block, ["bash", "-c", command], expected)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("pages", nargs="*", type=pathlib.Path)
    arguments = parser.parse_args()
    paths = arguments.pages or [ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md"))]
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        (scratch / "include/Base").mkdir(parents=True)
        header = scratch / "include/Base/ZBase.h"
        header.write_text(f'#include "{ROOT}/Base/ZBase.h"\n' + "".join(f"#include <{name}>\n" for name in HEADERS[1:]))
        subprocess.run(["g++", *FLAGS, f"-I{ROOT}", "-x", "c++-header", str(header), "-o", f"{header}.gch"], check=True)
        pages = [Page(path.resolve(), arguments.build.resolve(), scratch) for path in paths]
        ran, failed = 0, []
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for page in pool.map(Page.check, pages):
                ran += page.ran
                failed += page.failures
    print("\n\n".join(failed + [f"{ran} blocks and commands of {len(pages)} pages, {len(failed)} that do not do what is shown"]))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

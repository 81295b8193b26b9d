"""counted.py: what the compiler's notes (.gcno) and a program's counters (.gcda) say of the lines and branches of a tree.

A function is a graph of blocks. Its arcs have counters, except those of a spanning tree, whose counts follow from the others': what
enters a block leaves it. An arc is a branch if a line of the source decides on it. These are none:

- a call that returns, and one that ends in an exception: failures of memory and of the system are the injection's;
- what only an exception reaches on a line that other ways reach too: the compiler ends the life of temporaries there."""

import collections
import pathlib
import re
import subprocess

TREE, FAKE, FALL = 1, 2, 4
ENTRY, EXIT = 0, 1


class Arc:
    def __init__(self, start, end, flags):
        self.start, self.end, self.flags, self.count = start, end, flags, None
        self.is_throw = False


class Function:
    def __init__(self, key, blocks):
        self.key = key
        self.leaving = [[] for _ in range(blocks)]
        self.entering = [[] for _ in range(blocks)]
        self.lines = [[] for _ in range(blocks)]  # (source, line) of each block

    def add(self, start, arcs):
        for arc in arcs:
            self.leaving[arc.start].append(arc)
            self.entering[arc.end].append(arc)
        # A call that may not return has an arc to the end; the way besides it that is not the next block's is a throw.
        if any(arc.flags & FAKE for arc in arcs) and start != ENTRY:
            for arc in arcs:
                arc.is_throw = not arc.flags & (FAKE | FALL)

    def count(self, counts):
        """Gives each arc its count; `counts` are those of the arcs outside the tree, none if the function never ran."""
        counts = iter(counts)
        for arcs in self.leaving:
            for arc in arcs:
                if not arc.flags & TREE:
                    arc.count = next(counts, 0)
        todo = list(range(len(self.leaving)))
        while todo:
            block = todo.pop()
            ways = [arcs for arcs, outside in ((self.entering[block], ENTRY), (self.leaving[block], EXIT)) if block != outside]
            total = next((sum(arc.count for arc in arcs) for arcs in ways if all(arc.count is not None for arc in arcs)), None)
            if total is None:
                continue
            for arcs in ways:
                unknown = [arc for arc in arcs if arc.count is None]
                if len(unknown) == 1:
                    unknown[0].count = total - sum(arc.count for arc in arcs if arc.count is not None)
                    todo += [unknown[0].start, unknown[0].end]

    def ran(self, block):
        return any(arc.count for arc in self.entering[block])

    def reached_without_exceptions(self):
        reached, todo = {ENTRY}, [ENTRY]
        while todo:
            for arc in self.leaving[todo.pop()]:
                if not arc.is_throw and not arc.flags & FAKE and arc.end not in reached:
                    reached.add(arc.end)
                    todo.append(arc.end)
        return reached


def dump(path):
    return subprocess.run(["gcov-dump", "-l", path], capture_output=True, check=True, encoding="utf-8").stdout


def parts(text):
    """The function records of a dump."""
    return re.split(r"^.*?: +01000000: *\d+:FUNCTION ", text, flags=re.MULTILINE)[1:]


IDENTITY = re.compile(r"ident=(\d+), lineno_checksum=(0x\w+), cfg_checksum=(0x\w+)")
PLACE = re.compile(r"`([^']*)'( \(?artificial\)?)? (.*):(\d+):(\d+)-")


def functions(notes, is_wanted):
    """The functions of the notes at places that are wanted, by their identities."""
    found = {}
    for part in parts(dump(notes)):
        head, _, body = part.partition("\n")
        place = PLACE.search(head)
        if place is None or not is_wanted(place[3]):
            continue
        function = None
        for line in body.splitlines():
            text = line.partition(":")[2].strip()
            if match := re.match(r"01410000:.*BLOCKS (\d+) blocks", text):
                function = Function((place[3], int(place[4]), int(place[5])), int(match[1]))
            elif match := re.match(r"block (\d+): ?(\d+:.*)", text):
                start = int(match[1])
                function.add(start, [Arc(start, int(end), int(flags, 16)) for end, flags in
                                     re.findall(r"(\d+):([0-9a-f]{4})", match[2])])
            elif match := re.match(r"block (\d+):(`.*)", text):
                for source, numbers in re.findall(r"`([^']*)':([\d, ]*)", match[2]):
                    function.lines[int(match[1])] += [(source, int(number)) for number in re.findall(r"\d+", numbers)]
        found[IDENTITY.match(head).groups()] = function
    return found


def counters(path):
    """The counters of each function that a program left, by the function's identity."""
    found = {}
    for part in parts(dump(path)) if path.exists() else []:
        head, _, body = part.partition("\n")
        found[IDENTITY.match(head).groups()] = [int(number) for row in re.findall(r"^.*?: +\d+: ((?:-?\d+ ?)+)$", body, re.MULTILINE)
                                                for number in row.split()]
    return found


class Source:
    def __init__(self):
        self.lines = collections.Counter()  # of each line how many of its blocks ran
        self.branches = collections.Counter()  # of each branch, (line, function, number on the line), how often it was taken


def add(function, sources):
    regular = function.reached_without_exceptions()
    place, branches, has_regular = None, collections.defaultdict(list), set()
    for block in range(2, len(function.leaving)):
        ran = function.ran(block)
        for place in function.lines[block]:
            sources[place[0]].lines[place[1]] += ran
        if place is None:
            continue
        if block in regular:
            has_regular.add(place)
        arcs = [arc for arc in function.leaving[block] if not arc.flags & FAKE]
        if len(arcs) > 1 and not any(arc.is_throw for arc in arcs):
            branches[place].append((block in regular, arcs))
    for (source, line), choices in branches.items():
        taken = [arc.count for is_regular, arcs in choices if is_regular or (source, line) not in has_regular for arc in arcs]
        for number, count in enumerate(taken):
            sources[source].branches[line, function.key, number] += max(count or 0, 0)


def without_braces(path, source):
    """The source without its lines that have no code but braces."""
    text = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
    empty = {number for number, line in enumerate(text, 1) if re.fullmatch(r"[\s{}();,]*(//.*)?", line)}
    source.lines = {line: count for line, count in source.lines.items() if line not in empty}
    source.branches = {branch: count for branch, count in source.branches.items() if branch[0] not in empty}
    return source


def read(build, root, folders):
    """What ran of the sources in folders of the tree `root`, by their paths in it."""
    within = tuple(f"{root}/{folder}/" for folder in folders)
    sources = collections.defaultdict(Source)
    for notes in sorted(file for folder in folders for file in pathlib.Path(build, folder).rglob("*.gcno")):
        counts = counters(notes.with_suffix(".gcda"))
        for identity, function in functions(notes, lambda path: path.startswith(within)).items():
            function.count(counts.get(identity, []))
            add(function, sources)
    return {path.removeprefix(f"{root}/"): without_braces(path, source) for path, source in sources.items() if path.startswith(within)}

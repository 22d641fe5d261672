#!/usr/bin/python3
"""Counts what the library does for a piece of data, a line of output and an error, and compares it with counts.txt.

   bench/count.py PROGRAM     (bench/counted of an optimised build, inside tests/lab/archive-host)

Each count is the difference of two runs of different length, divided by what the second did more. Fails when a count is
above its figure, or has none."""

import os
import re
import subprocess
import sys
from collections import Counter

RUNS = 3
HERE = os.path.dirname(os.path.abspath(__file__))
ALLOCATIONS = {"malloc", "calloc", "realloc", "aligned_alloc", "posix_memalign", "memalign"}
CHUNK_CALLS = ["write", "read"]
END_OF_FILE = r'"\0E\n", 3)'


def run(words):
    done = subprocess.run(words, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(words)} failed:\n{done.stderr}")


def executed(words):
    """Returns the instructions, allocations and exceptions of a program, its children not counted."""
    output = os.environ["LAB"] + "/callgrind"
    run(["valgrind", "--tool=callgrind", "--compress-strings=no", f"--callgrind-out-file={output}"] + words)
    counts = Counter(instructions=0, allocations=0, exceptions=0)
    callee = ""
    with open(output) as file:
        for line in file:
            if line.startswith("cfn="):
                callee = line[4:].strip().split("'")[0]  # a function that calls itself has 'NUMBER behind its name
            elif line.startswith("calls="):
                calls = int(line[6:].split()[0])
                counts["allocations"] += calls if callee in ALLOCATIONS else 0
                counts["exceptions"] += calls if callee == "__cxa_throw" else 0
            elif line.startswith("summary:"):
                counts["instructions"] = int(line.split()[1])
    # Every program here allocates and none is so short: nothing found means that the output was not understood.
    if not counts["allocations"] or counts["instructions"] < 10000:
        sys.exit(f"cannot read {output}")
    return counts


def system_calls_of_chunks(words):
    """Returns how often each system call stands at or behind the write of a chunk, up to the next attempt to write one, for
    one chunk. An attempt that finds the terminal full is followed by waiting, which does not belong to any chunk."""
    output = os.environ["LAB"] + "/strace"
    run(["strace", "-o", output] + words)
    counts = Counter()
    chunks, taken = 0, False
    with open(output) as file:
        for line in file:
            write = re.match(r"write\(\d+, .*, 2048\) += (-?\d+)", line)
            if write:
                taken = write[1] == "2048"
                chunks += taken
            elif END_OF_FILE in line:
                taken = False
            call = re.match(r"(\w+)\(", line)
            if taken and call:
                counts[call[1]] += 1
    if chunks < 1000:
        sys.exit(f"only {chunks} chunks were written in one piece")
    result = {name: counts.pop(name) / chunks for name in CHUNK_CALLS}
    result["other-system-calls"] = counts.total() / chunks
    return result


def per_unit(count, words, short, long, units=1):
    """Returns what count finds for one of the units that make up the number given to words. Waiting only adds to what is
    counted, so the least of some runs is what the work itself takes."""
    def least(number):
        runs = [count(words + [str(number)]) for _ in range(RUNS)]
        return {name: min(run[name] for run in runs) for name in runs[0]}

    less, more = least(short), least(long)
    return {name: (more[name] - less[name]) / ((long - short) * units) for name in more}


def main():
    program = sys.argv[1]
    found = {}

    def note(unit, counts):
        found.update({f"{unit} {name}": value for name, value in counts.items()})

    note("chunk", per_unit(executed, [program, "chunks"], 1000, 11000))
    note("chunk", system_calls_of_chunks([program, "chunks", "4000"]))
    note("line", per_unit(executed, [program, "lines"], 100, 1000, units=20))
    note("error", per_unit(executed, [program, "errors"], 10, 110))

    limits = {}
    with open(f"{HERE}/counts.txt") as file:
        for line in file:
            words = line.split("#")[0].split()
            if words:
                limits[" ".join(words[:2])] = float(words[2])

    failures = [f"counts.txt: nothing counts {name}" for name in limits.keys() - found.keys()]
    print(f"{'':32}{'counted':>12}{'at most':>12}")
    for name, value in found.items():
        limit = limits.get(name)
        print(f"{name:32}{value:12.3f}{'' if limit is None else f'{limit:12.3f}'}")
        if limit is None or value > limit:
            failures.append(f"{name}: {value:.3f} is more than {'nothing' if limit is None else limit}")
    if failures:
        sys.exit("\n".join(failures))


if __name__ == "__main__":
    main()

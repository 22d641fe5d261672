#!/usr/bin/python3
"""Runs the benchmarks that scripts/bench has built, and prints a table of medians and ratios, each line when it is known.

   bench/run.py BUILD [--write-docs] [LINE...]

What is compared runs in turn, in an order made at random, beside a private host that lives as long as the line.
Everything goes into BUILD/bench.json too; --write-docs puts the table and a picture into docs."""

import json
import os
import platform
import random
import re
import statistics
import subprocess
import sys
import time
from dataclasses import dataclass, field

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LAB = [f"{ROOT}/tests/lab/archive-host"]
MIB = 1 << 20
DATA = 256 * MIB  # what a line of transfer_bench sends
FAR_TOO_LONG = 900  # seconds
ROUNDS = 4  # of a line whose goal lies where its ratio might be: at the most so many


@dataclass
class Line:
    """One line of the table: one program's benchmarks LINE/library and LINE/BESIDE."""
    name: str
    program: str
    what: str
    beside: str = ""
    beside_what: str = ""
    unit: str = "ms"  # of the table: a time, or MB/s
    at_least: float = 0
    at_most: float = 0
    at_most_more: float = 0  # than what it is compared with, in the line's unit
    repetitions: int = 9
    options: list = field(default_factory=list)


def sessions(count):
    return Line(f"sessions_{count}", "transfer_bench", f"{count} session{'s' if count > 1 else ''} at once", "bare",
                "bare loops, as many", "MB/s", at_least=0.95, repetitions=7)


LINES = [
    Line("file", "transfer_bench", "file of 256 MiB, 2,048-byte pieces", "bare", "bare loop", "MB/s", at_least=0.95),
    Line("copy", "transfer_bench", "the same with its login", "scp", "sshpass scp -O", "MB/s", repetitions=7),
    Line("stream", "transfer_bench", "stream of 256 MiB", "bare", "bare loop", "MB/s", at_least=0.95),
    Line("large_pieces", "transfer_bench", "file in 64 KiB pieces", "bare", "bare loop", "MB/s", at_least=0.95),
    Line("polled", "transfer_bench", "the same", "bare", "bare loop that polls", "MB/s", at_least=0.95),
    sessions(1), sessions(2), sessions(4), sessions(8), sessions(16),
    Line("command", "session_bench", "framed command, one line", "bare", "bare write and read", "us", at_most=1.10,
         repetitions=20),
    Line("output", "session_bench", "1,000 lines of 80 bytes", "bare", "bare reader", "us", at_most=1.15,
         repetitions=20),
    Line("reads", "session_bench", "the same", "bare", "bare reader of 1,024", "us", at_most=1.15, repetitions=20),
    Line("login", "session_bench", "login until the shell answers", "sshpass", "sshpass ssh true", at_most=1.00,
         repetitions=25),
    Line("key", "session_bench", "host key fetched", "ssh-keyscan", "ssh-keyscan", repetitions=15),
    Line("api", "api_bench", "tavren_api_get_state", "clnt_call", "bare clnt_call", "us", at_most=1.02, repetitions=40,
         options=["--benchmark_min_time=0.05"]),
    Line("error", "error_bench", "error of 25 lines, there and back", unit="us"),
    Line("start_c", "start_bench", "start of a program that links it", "without", "C program without",
         at_most_more=3, repetitions=15, options=["--benchmark_min_time=0.1"]),
    Line("start_cpp", "start_bench", "start of a program that links it", "without", "C++ program without",
         at_most_more=3, repetitions=15, options=["--benchmark_min_time=0.1"]),
]

# Sizes of one_file, with how often each side sends it. The largest is there for its memory, not beside anything.
SIZES = [(MIB >> 4, 5, 5), (MIB >> 2, 5, 5), (MIB, 5, 5), (4 * MIB, 5, 5), (16 * MIB, 5, 5), (64 * MIB, 3, 3),
         (256 * MIB, 3, 3), (1024 * MIB, 1, 1), (4096 * MIB - 1, 1, 0)]

# Where stripped libraries are measured: target, build directory, the prefix of its tools, what it may have in bytes.
TARGETS = [("amd64", "release", "", 0), ("armhf", "release-armhf", "arm-linux-gnueabihf-", 200 * 1024),
           ("i386", "release-i686", "i686-linux-gnu-", 0), ("s390x", "release-s390x", "s390x-linux-gnu-", 0)]

CALLER_RUNS = 5  # of each side, of 50 rounds
CALLERS_RATIO = 3  # of what 99 of 100 answers take
CALLERS_MORE = 50  # ms that the slowest answer may take more while the daemon sends a large file

GIB = 1 << 30
ARCHIVING_RUNS = 3  # of each side


@dataclass
class Archiving:
    """One line about the daemon: the logs in a directory that bench/archive-once has archived, and what that is beside."""
    name: str
    what: str
    logs: str
    beside: str
    beside_what: str
    at_least: float = 0
    section_line: str = ""
    rate: str = ""  # of the network


ARCHIVING = [
    Archiving("archive_text", "tavrend: 1 GiB of log text, zstd", "text", "scp", "scp -O, raw", 1.00, "compress=zstd"),
    Archiving("archive_link", "the same at 100 Mbit/s", "text", "scp", "scp -O, raw", 3.0, "compress=zstd", "100mbit"),
    Archiving("archive_random", "tavrend: 1 GiB of random bytes", "random", "library", "tavren_send", 0.97),
    Archiving("archive_files", "tavrend: 5,000 files of 2 KiB", "files", "library", "tavren_send", 0.95),
    Archiving("archive_copy", "the same", "files", "scp", "scp -O -r"),
]

VERDICTS = {True: "reached", False: "NOT REACHED"}
UNCLEAR = ", unclear"
SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def command(line, build):
    program = f"{build}/bench/{line.program}"
    if line.program == "api_bench":
        return [f"{ROOT}/tests/daemon/daemon-host", f"{ROOT}/bench/beside-daemon", f"{build}/tests/daemon_server", program]
    return LAB + [program]


def run(words):
    """Returns what a program prints; its failure ends everything."""
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, timeout=FAR_TOO_LONG).stdout


def times(line, build):
    """Runs a line's benchmarks and returns the seconds of each repetition: side -> list."""
    output = f"{build}/bench/{line.name}.json"
    run(command(line, build) + [f"--benchmark_filter=^{line.name}/", f"--benchmark_repetitions={line.repetitions}",
                                "--benchmark_enable_random_interleaving=true", f"--benchmark_out={output}",
                                "--benchmark_out_format=json"] + line.options)
    sides = {}
    with open(output) as file:
        for result in json.load(file)["benchmarks"]:
            if result["run_type"] != "iteration":
                continue
            if result.get("error_occurred"):
                sys.exit(f"{result['name']}: {result['error_message']}")
            side = result["name"].split("/")[1]
            sides.setdefault(side, []).append(result["real_time"] * SECONDS[result["time_unit"]])
    return sides


def verdict(line, library, beside, ratio, spread):
    """Returns what the line is to reach, and what became of that."""
    if line.at_most_more:
        return f"{line.at_most_more:g} {line.unit} more", VERDICTS[library - beside <= line.at_most_more]
    if not line.at_least and not line.at_most:
        return "", ""
    limit = line.at_least or line.at_most
    reached = ratio >= limit if line.at_least else ratio <= limit
    unclear = UNCLEAR if spread[0] < limit < spread[1] else ""
    return f"{'>=' if line.at_least else '<='} {limit:.2f}", VERDICTS[reached] + unclear


def ratio_range(library, beside):
    """Returns between what the ratio of medians lies, 19 times in 20, when samples like these are drawn again."""
    draw = random.Random(1).choices
    ratios = sorted(statistics.median(draw(library, k=len(library))) / statistics.median(draw(beside, k=len(beside)))
                    for _ in range(2000))
    return ratios[50], ratios[1949]


def row_of(line, sides):
    """Returns what the samples of a line come to: side -> list, in the line's unit."""
    library = statistics.median(sides["library"])
    row = {"line": line.name, "what": line.what, "unit": line.unit, "median": library, "samples": sides["library"]}
    if line.beside:
        beside = statistics.median(sides[line.beside])
        row.update(beside=line.beside_what, beside_median=beside, beside_samples=sides[line.beside],
                   ratio=library / beside, ratio_range=ratio_range(sides["library"], sides[line.beside]))
        row["goal"], row["verdict"] = verdict(line, library, beside, row["ratio"], row["ratio_range"])
    return row


def measure(line, build):
    """Measures until it is clear whether the goal is reached, or for the last time. All samples count."""
    def in_unit(seconds):
        return DATA / seconds / 1e6 if line.unit == "MB/s" else seconds / SECONDS[line.unit]

    sides = {}
    for _ in range(ROUNDS):
        for side, values in times(line, build).items():
            sides.setdefault(side, []).extend(in_unit(value) for value in values)
        row = row_of(line, sides)
        if not row.get("verdict", "").endswith(UNCLEAR):
            break
    return [row]


def measure_sizes(build):
    """Sends files of growing size; returns the row of peak memory, with all sizes in it."""
    def send(side, size):
        seconds, kib = run(LAB + [f"{build}/bench/one_file", side, str(size)]).split()
        return {"MB/s": size / float(seconds) / 1e6, "KiB": int(kib)}

    table = []
    for size, *repetitions in SIZES:
        sides = list(zip(["library", "bare"], repetitions))
        results = {side: [] for side, _ in sides}
        for turn in range(max(repetitions)):
            for side in (side for side, times in sides if turn < times):
                results[side].append(send(side, size))
        entry = {"bytes": size}
        for side, values in results.items():
            if values:
                entry[side] = {unit: statistics.median(value[unit] for value in values) for unit in values[0]}
        table.append(entry)
    peak = {entry["bytes"]: entry["library"]["KiB"] for entry in table}
    small, large = peak[MIB], peak[4096 * MIB - 1]
    return [{"line": "memory", "what": "peak memory, file of 4 GiB", "unit": "KiB", "median": large,
             "beside": "file of 1 MiB", "beside_median": small, "ratio": large / small, "goal": "256 KiB more",
             "verdict": VERDICTS[abs(large - small) <= 256], "sizes": table}]


def measure_callers(build):
    """Asks the daemon from many callers at once, while it sends and while it is quiet; returns a row for each figure."""
    sides = {"sending": [], "quiet": []}
    for _ in range(CALLER_RUNS):
        for side in random.sample(list(sides), len(sides)):
            program = [f"{ROOT}/bench/beside-tavrend", build, f"{build}/bench/callers", side]
            sides[side].append([float(value) * 1000 for value in run(LAB + program).split()])
    rows = []
    for i, (what, figure) in enumerate([("median", statistics.median), ("99 of 100", statistics.median), ("slowest", max)]):
        samples = {side: [values[i] for values in runs] for side, runs in sides.items()}
        sending, quiet = figure(samples["sending"]), figure(samples["quiet"])
        rows.append({"line": "callers", "what": f"tavrend, 50 callers: {what}", "unit": "ms", "median": sending,
                     "samples": samples["sending"], "beside": "while it is quiet", "beside_median": quiet,
                     "beside_samples": samples["quiet"], "ratio": sending / quiet})
    rows[1].update(goal=f"<= {CALLERS_RATIO:.2f}", verdict=VERDICTS[rows[1]["ratio"] <= CALLERS_RATIO])
    rows[-1].update(goal=f"{CALLERS_MORE} ms more", verdict=VERDICTS[sending - quiet <= CALLERS_MORE])
    return rows


def measure_idle(build):
    """Has the daemon archive a file and then nothing for a minute; returns a row each for its wake-ups and its memory."""
    logs = f"{build}/bench-idle"
    os.makedirs(logs, exist_ok=True)
    with open(f"{logs}/log.1", "w") as file:
        file.write("one line\n")
    program = ["env", f"LOGS={logs}"] + LAB + [f"{ROOT}/bench/beside-tavrend", build, f"{build}/bench/idle"]
    wakeups, kib = (int(value) for value in run(program).split())
    return [{"line": "idle", "what": "tavrend, nothing due: wake-ups", "unit": "a minute", "median": wakeups, "goal": "0",
             "verdict": VERDICTS[wakeups == 0]},
            {"line": "idle", "what": "tavrend, nothing due: memory", "unit": "KiB", "median": kib}]


def log_lines(draw):
    """Generates lines as a service processor's system log has them: few forms, many numbers."""
    forms = ["sshd[{pid}]: Accepted publickey for admin from 10.{a}.{b}.{c} port {port} ssh2",
             "sshd[{pid}]: pam_unix(sshd:session): session opened for user admin(uid=1000) by (uid=0)",
             "sshd[{pid}]: Disconnected from user admin 10.{a}.{b}.{c} port {port}",
             "systemd[1]: Started session-{pid}.scope - Session {pid} of User admin.",
             "sensord[412]: fan{a} {port} rpm, inlet {b} degrees, outlet {c} degrees",
             "kernel: [{port}.{pid}] EDAC MC{a}: 1 CE memory read error on CPU_SrcID#0_Ha#0_Chan#{b}_DIMM#{c}",
             "httpd[873]: 10.{a}.{b}.{c} - - \"GET /redfish/v1/Chassis/1/Thermal HTTP/1.1\" 200 {port}",
             "eventd[390]: event {pid}: power supply {a} input {b} V, output {c} W",
             "cron[{pid}]: (root) CMD (/usr/libexec/collect-sensors --all --since {port})"]
    seconds = 0
    while True:
        seconds += draw.randrange(3)
        moment = time.strftime("%b %d %H:%M:%S", time.gmtime(seconds))
        numbers = {name: draw.randrange(1, top) for name, top in
                   [("pid", 32768), ("port", 65536), ("a", 12), ("b", 256), ("c", 256)]}
        yield f"{moment} chassis-17 {draw.choice(forms).format(**numbers)}\n"


def make_logs(directory):
    """Makes what the daemon's lines archive, unless it is there."""
    if os.path.exists(f"{directory}/complete"):
        return
    for name in ("text", "random", "files"):
        os.makedirs(f"{directory}/{name}", exist_ok=True)
    lines = log_lines(random.Random(1))
    block = "".join(next(lines) for _ in range(64 * MIB // 64))[:64 * MIB].encode()
    with open(f"{directory}/text/log.1", "wb") as text, open(f"{directory}/random/log.1", "wb") as noise:
        while text.tell() < GIB:
            text.write(block[:GIB - text.tell()])
        while noise.tell() < GIB:
            noise.write(os.urandom(MIB))
    for i in range(5000):
        with open(f"{directory}/files/log.{i:04}", "wb") as file:
            file.write(block[2048 * i:2048 * (i + 1)])
    open(f"{directory}/complete", "w").close()


def measure_archiving(line, build):
    """Has the daemon archive logs, and what it stands beside send them, in turn; returns the row, in MB/s."""
    logs = f"{build}/bench-logs"
    make_logs(logs)
    directory = f"{logs}/{line.logs}"
    size = sum(os.path.getsize(f"{directory}/{name}") for name in os.listdir(directory))
    arguments = {"library": ["tavrend", directory, line.section_line], line.beside_what: [line.beside, directory]}
    sides = {side: [] for side in arguments}
    for _ in range(ARCHIVING_RUNS):
        for side in random.sample(list(sides), len(sides)):
            words = LAB + [f"{ROOT}/bench/archive-once", build] + arguments[side]
            sides[side].append(size / float(run(["env", f"RATE={line.rate}"] + words)) / 1e6)
    like = Line(line.name, "", line.what, line.beside_what, line.beside_what, "MB/s", at_least=line.at_least)
    return [row_of(like, sides)]


def measure_libraries(_build):
    """Strips the library of every target that scripts/bench could build, and returns its size."""
    rows = []
    for target, directory, tools, limit in TARGETS:
        library = f"{ROOT}/build/{directory}/src/libtavren.so"
        stripped = f"{ROOT}/build/{directory}/libtavren.stripped"
        run([f"{tools}strip", "-o", stripped, library])
        size = os.path.getsize(stripped)
        row = {"line": "size", "what": f"stripped library, {target}", "unit": "KiB", "median": size / 1024}
        if limit:
            row.update(goal=f"< {limit // 1024} KiB", verdict=VERDICTS[size < limit])
        rows.append(row)
    return rows


def number(value, unit):
    return f"{value:,.0f} {unit}" if value >= 100 or unit == "KiB" else f"{value:,.3g} {unit}"


HEADINGS = ["line", "what", "library", "beside", "", "ratio", "95 % within", "to reach", ""]


def cells(row):
    beside = row.get("beside", "")
    return [row["line"], row["what"], number(row["median"], row["unit"]), beside,
            number(row["beside_median"], row["unit"]) if beside else "", f"{row['ratio']:.3f}" if beside else "",
            "{:.2f} to {:.2f}".format(*row["ratio_range"]) if "ratio_range" in row else "",
            row.get("goal", ""), row.get("verdict", "")]


# Of the table's columns, before anything is measured; negative ones are aligned on the right.
WIDTHS = [max(len(line.name) for line in LINES + ARCHIVING), max(len(line.what) for line in LINES + ARCHIVING), -10,
          max(len(line.beside_what) for line in LINES), -10, -5, len("0.95 to 1.05"), len("256 KiB more"), 0]


def print_line(texts):
    """Prints a line of the table at once: who stops the program has what was measured until then."""
    print("  ".join(text.ljust(width) if width >= 0 else text.rjust(-width) for text, width in zip(texts, WIDTHS)).rstrip(),
          flush=True)


def machine():
    with open("/proc/cpuinfo") as file:
        model = re.search(r"model name\s*: (.*)", file.read()).group(1)
    with open("/proc/meminfo") as file:
        memory = int(re.search(r"MemTotal:\s*(\d+)", file.read()).group(1)) / MIB
    client = subprocess.run(["/usr/bin/ssh", "-V"], stderr=subprocess.PIPE, text=True, check=True).stderr.split(",")[0]
    return f"{model}, {os.cpu_count()} processors, {memory:.0f} GiB, Linux {platform.release()}, {client}"


def load():
    return ", ".join(f"{value:.1f}" for value in os.getloadavg())


def write_docs(report, build):
    """Replaces what stands between the two marks in docs/performance.md, and draws the picture beside it."""
    path = f"{ROOT}/docs/performance.md"
    with open(path) as file:
        text = file.read()
    lines = ["| " + " | ".join(HEADINGS) + " |", "|" + "---|" * len(HEADINGS)]
    lines += ["| " + " | ".join(cells(row)) + " |" for row in report["rows"]]
    made = (f"{report['machine']}; {report['date']}, {report['seconds']:.0f} seconds; load averages before: "
            f"{report['load_before']}, after: {report['load_after']} (what is measured is part of that).\n\n" +
            "\n".join(lines) + "\n")
    text = re.sub(r"(<!-- made by scripts/bench --write-docs -->\n).*?(<!-- end -->)", lambda m: m[1] + made + m[2], text,
                  flags=re.S)
    with open(path, "w") as file:
        file.write(text)
    sizes = next(row["sizes"] for row in report["rows"] if row["line"] == "memory")
    data = "".join(f"{e['bytes'] / MIB} {e['library']['MB/s']} {e.get('bare', {}).get('MB/s', '?')} "
                   f"{e['library']['KiB'] / 1024}\n" for e in sizes)
    with open(f"{build}/bench/sizes", "w") as file:
        file.write(data)
    run(["gnuplot", "-e", f"output='{ROOT}/docs/performance.svg'; sizes='{build}/bench/sizes'",
         f"{ROOT}/bench/sizes.gnuplot"])


def main():
    build, arguments = os.path.abspath(sys.argv[1]), sys.argv[2:]
    docs = "--write-docs" in arguments
    wanted = [argument for argument in arguments if argument != "--write-docs"]
    steps = [(line.name, lambda build, line=line: measure(line, build)) for line in LINES]
    steps += [(line.name, lambda build, line=line: measure_archiving(line, build)) for line in ARCHIVING]
    steps += [("callers", measure_callers), ("idle", measure_idle), ("memory", measure_sizes), ("size", measure_libraries)]
    unknown = set(wanted) - {name for name, _ in steps}
    if unknown or (docs and wanted):
        sys.exit("lines: " + " ".join(name for name, _ in steps) + "\n--write-docs wants all of them")

    report = {"machine": machine(), "date": time.strftime("%Y-%m-%d %H:%M"), "load_before": load(), "rows": []}
    print(f"{report['machine']}\nload before: {report['load_before']}\n")
    print_line(HEADINGS)
    start = time.monotonic()
    for name, step in steps:
        if wanted and name not in wanted:
            continue
        rows = step(build)
        for row in rows:
            print_line(cells(row))
        report["rows"] += rows
        report.update(load_after=load(), seconds=time.monotonic() - start)
        with open(f"{build}/bench.json", "w") as file:
            json.dump(report, file, indent=1)
    print(f"\nload after: {report['load_after']}; {report['seconds']:.0f} seconds")
    if docs:
        write_docs(report, build)


if __name__ == "__main__":
    main()

"""Tables and pictures of what bench/fleet has found, and their places in docs/fleet.md."""

import math
import os
import re
import subprocess

from fleet_scenes import CHASSIS, HOSTS, KINDS, LIVE, MAX_STARTUPS, PROCESSORS, SIZES, WAYS

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
NEVER = "not in two hours"


def table(headings, rows):
    lines = ["| " + " | ".join(map(str, headings)) + " |", "|" + "---|" * len(headings)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]) + "\n"


def milliseconds(seconds):
    return f"{seconds * 1000:,.0f} ms"


def duration(seconds):
    if seconds is None:
        return NEVER
    return f"{seconds:.1f} s" if seconds < 10 else f"{seconds:.0f} s" if seconds < 600 else f"{seconds / 60:.0f} min"


def conditions(step):
    return (f"{step['machine']}; {step['date']}, {step['seconds']:.0f} seconds; load averages before: "
            f"{step['load_before']}, after: {step['load_after']} (what is measured is part of that).\n\n")


def measured(report):
    came = report["measure"]["came"]
    rows = [
        ["a login that does nothing (a tenth takes less)", milliseconds(came["login_wall"]), milliseconds(came["login_server"]),
         milliseconds(came["login_client"])],
        ["logins as fast as they go, eight at once", f"{came['logins_a_second']:.1f} a second",
         milliseconds(came["busy_login_server"]), milliseconds(came["busy_login_client"])],
        ["a session of `tavrend`, one line to archive (a tenth)", milliseconds(came["session_wall"]),
         milliseconds(came["session_server"]), milliseconds(came["session_client"])],
        ["a client that nobody answers", "", "", milliseconds(came["start_client"])],
        ["each further MiB", "", milliseconds(came["mib_server"]), milliseconds(came["mib_client"])],
    ]
    text = conditions(report["measure"]) + table(["", "takes", "of the host's processors", "of the chassis's"], rows)
    text += (f"\nSo a processor of the host carries {1 / came['busy_login_server']:.0f} logins a second, or "
             f"{1 / came['mib_server']:.0f} MiB a second; while eight logged in at once, client and server together had "
             f"{came['busy_processors']:.1f} processors, and the rest was other people's.\n\n")
    begun = [int(words) for words in came["refused"]]
    says = [0 if n < 10 else min(30 + 70 * (n - 10) / 90, 100) for n in begun]
    text += table(["logins that have begun"] + begun,
                  [["refused, of those that come then"] + [f"{part * 100:.0f} %" for part in came["refused"].values()],
                   ["the manual's rule"] + [f"{part:.0f} %" for part in says]])
    return text + f"\nWho is refused reads `{'`, `'.join(came['refusal'])}`. A login that has begun takes {came['begun_kib'] / 1024:.1f} MiB of the host's memory.\n"


def days(report):
    rows = []
    for words, came in zip(["first runs spread", "all in step"], report["simulate"]["came"]["days"]):
        rows.append([words, f"{came['done']:,}", f"{came['refused']:,}", max(came["logins"]), came["most_pending"],
                     *map(duration, (came["late"][0], came["late"][2], came["late"][3])), f"{came['busy']:.2f}"])
    return table(["", "sessions", "refused", "most knocks a minute", "most logins at once", "late, half of them",
                  "99 of 100", "all", "processors busy"], rows)


def outages(report):
    came = iter(report["simulate"]["came"]["outages"])
    rows = []
    for words, _ in WAYS:
        for kind in KINDS.values():
            one = next(came)
            rows.append([words, kind, *map(duration, one["quantiles"]), f"{one['refused']:,}", f"{one['busy']:.2f}"])
            words = ""
    return table(["chassis", "the host", "half are back", "90 of 100", "99 of 100", "all", "refused then",
                  "processors busy in the outage"], rows)


def startups(report):
    rows = [[":".join(map(str, words)), *map(duration, came["quantiles"]), f"{came['failed']:,}",
             f"{came['busy']:,.0f} s"]
            for words, came in zip(MAX_STARTUPS, report["simulate"]["came"]["startups"])]
    return table(["`MaxStartups`", "half are done", "90 of 100", "99 of 100", "all", "sessions that failed",
                  "of the processors"], rows)


def sizes(report):
    came = iter(report["simulate"]["came"]["sizes"])
    rows = []
    for processors, limits in HOSTS:
        for chassis in SIZES:
            one = next(came)
            rows.append([processors, ":".join(map(str, limits)), f"{chassis:,}", f"{one['usual']:.2f}", *map(duration, one["quantiles"][:3]),
                         f"{one['refused']:,}"])
    return table(["processors", "`MaxStartups`", "chassis", "busy on a usual day", "half are back", "90 of 100", "99 of 100",
                  "refused then"], rows)


def middle_and_range(values):
    middle, least, most = values
    return f"{middle:.0f} ({least:.0f} to {most:.0f})"


def at(values, part):
    return values[math.ceil(len(values) * part) - 1]


def check(report):
    came = report["compare"]
    said = [f"{at(came['said_back'], part)[0]:.1f} ({at(came['said_back'], part)[1]:.1f} to "
            f"{at(came['said_back'], part)[2]:.1f})" for part in (0.5, 0.9, 1)]
    said_served = [f"{at(came['said_served'], part)[0]:.1f} ({at(came['said_served'], part)[1]:.1f} to "
                   f"{at(came['said_served'], part)[2]:.1f})" for part in (0.5, 0.9, 1)]
    rows = [["first item, seconds from what is predicted for each: half, 99 of 100", "",
             f"{came['apart'][0]:.1f}, {came['apart'][2]:.1f}"],
            ["sessions that failed before the outage", middle_and_range(came["quiet_failures"]), came["errors"]["quiet"]],
            ["in the outage, and refused behind it", middle_and_range(came["failures"]), came["errors"]["outage"]]]
    for part, words in zip((0.5, 0.9, 1), ("half", "90 of 100", "all")):
        rows.append([f"{words} are back behind it, seconds", said.pop(0), f"{at(came['back'], part):.1f}"])
    rows.append(["all are told to come at one moment: sessions that fail", middle_and_range(came["together_failures"]),
                 came["errors"]["together"]])
    for part, words in zip((0.5, 0.9, 1), ("half", "90 of 100", "all")):
        rows.append([f"{words} have archived then, seconds", said_served.pop(0), f"{at(came['served'], part):.1f}"])
    rows.append(["archives that are their logs, byte for byte", "", f"{came['whole']} of {LIVE['count']}"])
    processors = report["check"]["came"]["processors"]
    text = conditions(report["check"])
    text += f"Logins just before and just behind it had {processors:.1f} processors, and so has the simulation.\n\n"
    return text + table(["", "simulated", "real"], rows)


def tables(report):
    """Returns those for which there is enough, by their names in the document."""
    makers = {"measured": ("measure", measured), "day": ("simulate", days), "outage": ("simulate", outages),
              "startups": ("simulate", startups), "hosts": ("simulate", sizes), "check": ("compare", check)}
    return {name: make(report) for name, (part, make) in makers.items() if part in report}


def write_points(path, blocks):
    """Writes what gnuplot draws: blocks of points, two empty lines between them."""
    with open(path, "w") as file:
        file.write("\n\n".join("".join(" ".join(map(str, point)) + "\n" for point in block) for block in blocks))


def waiting(back):
    """Returns how many wait, minute by minute."""
    ends = [seconds for seconds in back if seconds is not None]
    return [(minute / 4, len(back) - sum(end <= minute * 15 for end in ends)) for minute in range(0, 4 * 40 + 1)]


def draw(report, build):
    points = f"{build}/fleet"
    os.makedirs(points, exist_ok=True)
    came, compared = report["simulate"]["came"], report["compare"]
    write_points(f"{points}/day", [[(minute / 60, max(count / 60, 0.01)) for minute, count in enumerate(one["logins"])]
                                   for one in came["days"]])
    kinds = len(KINDS)
    write_points(f"{points}/outage", [waiting(came["outages"][way * kinds]["back"]) for way in (0, 1, 2, 4, 6)])
    write_points(f"{points}/hosts", [[(size, came["sizes"][row * len(SIZES) + i]["quantiles"][2] / 60)
                                      for i, size in enumerate(SIZES)
                                      if came["sizes"][row * len(SIZES) + i]["quantiles"][2] is not None]
                                     for row in range(len(HOSTS))])
    live = []
    for real, said in (("back", "said_back"), ("served", "said_served")):
        live.append([(seconds, i + 1) for i, seconds in enumerate(compared[real])])
        live.append([(middle, i + 1, least, most) for i, (middle, least, most) in enumerate(compared[said])])
    write_points(f"{points}/check", live)
    for picture in ("day", "outage", "hosts", "check"):
        subprocess.run(["gnuplot", "-e", f"picture='{picture}'; points='{points}/{picture}'; "
                        f"output='{ROOT}/docs/fleet-{picture}.svg'; chassis={CHASSIS}; processors={PROCESSORS}",
                        f"{ROOT}/bench/fleet.gnuplot"], check=True)


def write_docs(report, build):
    """Replaces what stands between the marks in docs/fleet.md, and draws the pictures beside it."""
    missing = {"measure", "simulate", "compare"} - report.keys()
    if missing:
        raise SystemExit(f"there is nothing yet to write about: {' '.join(sorted(missing))}")
    path = f"{ROOT}/docs/fleet.md"
    with open(path) as file:
        text = file.read()
    for name, made in tables(report).items():
        mark = f"<!-- made by scripts/fleet --write-docs: {name} -->\n"
        if mark not in text:
            raise SystemExit(f"{path} has no place for: {name}")
        text = re.sub(f"({re.escape(mark)}).*?(<!-- end -->)", lambda m, made=made: m[1] + made + m[2], text, flags=re.S)
    with open(path, "w") as file:
        file.write(text)
    draw(report, build)

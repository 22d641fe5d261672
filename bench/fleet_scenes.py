"""What bench/fleet simulates: ten thousand chassis with measured costs, and the live fleet."""

import math
import statistics
from concurrent.futures import ProcessPoolExecutor

from fleet_host import Costs, Fleet, Host, Outage, Simulation

TASK = "LogTypeTask.log"  # of a section that is called log
HOUR, DAY = 3600, 86400
CHASSIS = 10000
PROCESSORS = 2  # of the host in most tables
DOWN = 2 * HOUR  # when an outage begins
LIVE = {"count": 200, "interval": 60, "retry": 20, "outage": 60}  # the live fleet, in seconds
SEEDS = 40  # of a simulation of the live fleet
QUANTILES = (0.5, 0.9, 0.99, 1)
MAX_STARTUPS = [(10, 30, 100), (100, 30, 200), (100, 30, 1000), (1000, 30, 2000), (10000, 30, 10000)]
SIZES = (2500, 5000, 10000, 20000, 40000)  # of fleets
ADVISED = (1000, 30, 2000)  # MaxStartups
HOSTS = [(1, MAX_STARTUPS[0]), (2, MAX_STARTUPS[0]), (4, MAX_STARTUPS[0]), (2, ADVISED), (4, ADVISED)]  # processors

# How chassis may come, and wait after a failure: words of the table, members of a fleet.
WAYS = [("as it is: first runs spread, a tenth more or less", {}),
        ("no tenth more or less", {"jitter": 0}),
        ("waits that double, up to an hour", {"growth": 2}),
        ("waits of half an hour", {"retry": 1800}),
        ("all in step, a tenth more or less", {"spread": False}),
        ("the same, ten different sequences of draws among them all", {"spread": False, "seeds": 10}),
        ("all in step, no tenth more or less", {"spread": False, "jitter": 0})]
KINDS = {"refused": "refuses", "silent": "is silent", "broken": "fails behind the login"}


def quantiles(sorted_values):
    return [sorted_values[math.ceil(len(sorted_values) * part) - 1] for part in QUANTILES]


def costs_of(measured):
    """Returns what a host's processors do; the chassis have theirs."""
    return Costs(login=measured["login_server"], session=max(measured["session_server"] - measured["login_server"], 0),
                 mib=max(measured["mib_server"], 0),
                 login_wait=max(measured["login_wall"] - measured["login_server"], 0),
                 session_wait=max(measured["session_wall"] - measured["login_wall"], 0))


def shared_costs_of(measured):
    """Returns what all do together where the chassis live on the host's processors."""
    start = measured["start_client"]
    login = measured["login_server"] + measured["login_client"] - start
    session = max(measured["session_server"] + measured["session_client"] - login - start, 0)
    return Costs(start=start, login=login, session=session, mib=max(measured["mib_server"] + measured["mib_client"], 0),
                 login_wait=max(measured["login_wall"] - login - start, 0),
                 session_wait=max(measured["session_wall"] - measured["login_wall"] - session, 0))


def per_minute(moments, minutes):
    counts = [0] * minutes
    for moment in moments:
        if moment < minutes * 60:
            counts[int(moment // 60)] += 1
    return counts


# A day.
def day(costs, spread):
    run = Simulation(Host(PROCESSORS), costs, Fleet(CHASSIS, {TASK: HOUR}, spread=spread)).run(DAY)
    return {"logins": per_minute(run.attempts, DAY // 60), "attempts": len(run.attempts), "refused": len(run.refused),
            "done": len(run.done), "late": quantiles(sorted(run.late)), "most_pending": run.most_pending,
            "busy": sum(run.busy.values()) / DAY}


# An hour without the host.
def recovery(costs, kind, members, chassis=CHASSIS, processors=PROCESSORS, startups=MAX_STARTUPS[0]):
    outage = Outage(DOWN, DOWN + HOUR, kind)
    run = Simulation(Host(processors, *startups), costs, Fleet(chassis, {TASK: HOUR}, **members), outage).run(outage.end + 2 * HOUR)
    back = run.times_of_first_success_after(outage.end)
    busy = sum(seconds for minute, seconds in run.busy.items() if outage.begin <= minute * 60 < outage.end) / HOUR
    usual = sum(seconds for minute, seconds in run.busy.items() if HOUR <= minute * 60 < DOWN) / (DOWN - HOUR)
    return {"back": [seconds if math.isfinite(seconds) else None for seconds in back],
            "quantiles": [seconds if math.isfinite(seconds) else None for seconds in quantiles(back)],
            "refused": sum(moment >= outage.end for moment in run.refused), "busy": busy, "usual": usual}


# All at one moment.
def at_once(costs, startups):
    fleet = Fleet(CHASSIS, {TASK: DAY}, spread=False)
    run = Simulation(Host(PROCESSORS, *startups), costs, fleet).run(2 * HOUR)
    first = run.times_of_first_success_after(0)
    return {"quantiles": [seconds if math.isfinite(seconds) else None for seconds in quantiles(first)],
            "failed": len(run.failed), "busy": sum(run.busy.values())}


def call(job):
    function, *arguments = job
    return globals()[function](*arguments)


def simulate(measured):
    costs = costs_of(measured)
    days = [("day", costs, spread) for spread in (True, False)]
    outages = [("recovery", costs, kind, members) for _, members in WAYS for kind in KINDS]
    startups = [("at_once", costs, words) for words in MAX_STARTUPS]
    sizes = [("recovery", costs, "refused", {}, size, *host) for host in HOSTS for size in SIZES]
    with ProcessPoolExecutor() as pool:
        came = iter(list(pool.map(call, days + outages + startups + sizes)))
    return {"days": [next(came) for _ in days], "outages": [next(came) for _ in outages],
            "startups": [next(came) for _ in startups], "sizes": [next(came) for _ in sizes]}


# The live fleet and what the simulation says of it.
def predict_days(measured, live, seed):
    """Simulates the live fleet up to its recovery from the outage, seconds since its first start."""
    begin = min(live["started"])
    fleet = Fleet(LIVE["count"], {TASK: LIVE["interval"]}, mib_a_day=16, retry=LIVE["retry"])
    outage = Outage(live["down"] - begin, live["up"] - begin)
    run = Simulation(Host(live["processors"]), shared_costs_of(measured), fleet, outage, seed,
                     [moment - begin for moment in live["started"]], [moment - begin for moment in live["configured"]])
    run.run(outage.end + 600)
    first = {}
    for when, machine in run.successes:
        first.setdefault(id(machine), when)
    return {"first": [first[id(machine)] for machine in run.machines], "done": run.done,
            "quiet_failures": sum(moment < outage.begin for moment in run.failed),
            "failures": sum(moment >= outage.begin for moment in run.failed if moment < outage.end),
            "late_failures": sum(outage.end <= moment < outage.end + 60 for moment in run.failed),
            "back": run.times_of_first_success_after(outage.end)}


def predict_together(measured, live, seed):
    begin = min(live["asked"])
    fleet = Fleet(LIVE["count"], {TASK: DAY}, mib_a_day=16, retry=LIVE["retry"], spread=False)
    run = Simulation(Host(live["processors"]), shared_costs_of(measured), fleet, None, seed,
                     [moment - begin for moment in live["asked"]]).run(1200)
    return {"failures": len(run.failed), "back": run.times_of_first_success_after(0)}


def ranges(samples):
    """Returns the middle and the range of each number of lists that are equally long."""
    return [(statistics.median(values), min(values), max(values)) for values in zip(*samples)]


def compare(measured, live):
    begin = min(live["started"])
    first = [items[0] - begin for items in live["items"]]
    quiet = [predict_days(measured, live, seed) for seed in range(SEEDS)]
    together = [predict_together(measured, live, seed) for seed in range(SEEDS)]
    apart = sorted(abs(real - said) for real, said in zip(first, quiet[0]["first"]))
    errors = {part: len(messages) for part, messages in live["errors"].items()}
    return {"apart": quantiles(apart), "whole": live["whole"], "errors": errors,
            "items": sum(map(len, live["items"])),
            "quiet_failures": ranges([[sample["quiet_failures"]] for sample in quiet])[0],
            "failures": ranges([[sample["failures"] + sample["late_failures"]] for sample in quiet])[0],
            "together_failures": ranges([[sample["failures"]] for sample in together])[0],
            "back": sorted(moment - live["up"] for moment in live["back"]),
            "said_back": ranges([sample["back"] for sample in quiet]),
            "served": sorted(moment - min(live["asked"]) for moment in live["served"]),
            "said_served": ranges([sample["back"] for sample in together])}

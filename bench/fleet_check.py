#!/usr/bin/python3
"""Has many real daemons archive on one real sshd: fleet_check.py BUILD CHASSIS INTERVAL RETRY OUTAGE, in seconds, inside
tests/lab/archive-host. Prints one JSON value."""

import json
import sys
import time
from concurrent.futures import ThreadPoolExecutor

sys.dont_write_bytecode = True
from fleet_lab import MAX_STARTUPS, Chassis, Sshd, start_rpcbind, wait_until
from fleet_measure import measure_rate


class LiveFleet:
    """Many real daemons, which find out only from their own clocks when to come."""

    def __init__(self, build, count, interval, retry):
        self.sshd = Sshd(MAX_STARTUPS)
        self.interval, self.retry = interval, retry
        with ThreadPoolExecutor(8) as pool:
            self.all = list(pool.map(lambda number: Chassis(build, number, f"{interval}s"), range(count)))

    def for_each(self, action):
        with ThreadPoolExecutor(16) as pool:
            return list(pool.map(action, self.all))

    def start(self):
        def set_up(chassis):
            wait_until("a daemon", chassis.answers)
            chassis.ctl("set-tunable", "failure_retry_interval", str(self.retry))
            chassis.configure()

        for chassis in self.all:
            chassis.start()
        self.for_each(set_up)

    def write(self):
        for chassis in self.all:
            chassis.append(f"{time.time()} {chassis.name} " + "x" * 900 + "\n")

    def live_until(self, moment):
        """Has the logs grow."""
        while time.time() < moment:
            self.write()
            time.sleep(max(min(5, moment - time.time()), 0))

    def errors(self):
        """Returns what went wrong, one list of messages for each stored error, and forgets it."""
        def take(chassis):
            errors = json.loads(chassis.ctl("errors", "--json"))
            chassis.ctl("clear")
            return [error["messages"] for error in errors]

        return [messages for errors in self.for_each(take) for messages in errors]

    def first_items_after(self, moment):
        """Waits until each chassis has archived something after moment, and returns when each has."""
        def first(chassis):
            return wait_until("an item of each", lambda: [when for when in chassis.items() if when > moment])[0]

        return [first(chassis) for chassis in self.all]


def check(build, count, interval, retry, outage):
    """Has a live fleet archive on a quiet day, over an outage, and all at one moment. Returns when what happened."""
    rpcbind = start_rpcbind()
    # The scheduler shares among processes: what many get beside other people's work, many have to find out.
    before = measure_rate(Sshd("200"), seconds=6, at_once=48)["busy_processors"]
    fleet = LiveFleet(build, count, interval, retry)
    fleet.start()
    begun = time.time()
    fleet.live_until(begun + 2 * interval)
    errors = {"quiet": fleet.errors()}

    fleet.sshd.stop()
    down = time.time()
    fleet.live_until(down + outage)
    fleet.sshd.start()
    up = time.time()
    back = fleet.first_items_after(up)
    errors["outage"] = fleet.errors()
    items = [chassis.items() for chassis in fleet.all]

    # From here on nobody comes by himself.
    fleet.for_each(lambda chassis: chassis.ctl("set-interval", "log", "1d"))
    fleet.live_until(time.time() + interval + retry)
    errors["between"] = fleet.errors()
    fleet.write()
    asked = {}

    def ask(chassis):
        chassis.ctl("run", "log")
        asked[chassis.number] = time.time()

    server, together = fleet.sshd.seconds(), time.time()
    fleet.for_each(ask)
    served = fleet.first_items_after(together)
    server = fleet.sshd.seconds() - server
    errors["together"] = fleet.errors()
    whole = 0
    for chassis in fleet.all:
        chassis.stop()
        with open(chassis.log, "rb") as file:
            whole += chassis.archived() == file.read()
    after = measure_rate(Sshd("200"), seconds=6, at_once=48)["busy_processors"]
    rpcbind.terminate()
    return {"processors": (before + after) / 2, "started": [chassis.started for chassis in fleet.all], "configured": [c.configured for c in fleet.all],
            "items": items, "down": down, "up": up, "back": back, "asked": [asked[c.number] for c in fleet.all],
            "served": served, "server_seconds": server, "errors": errors, "whole": whole}


if __name__ == "__main__":
    print(json.dumps(check(sys.argv[1], *map(int, sys.argv[2:]))))

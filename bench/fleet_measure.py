#!/usr/bin/python3
"""Measures what a login and a session cost, and whom sshd refuses: fleet_measure.py BUILD, inside tests/lab/archive-host.
Prints one JSON value."""

import json
import os
import random
import resource
import statistics
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # modules lie beside their sources
from fleet_lab import MAX_STARTUPS, Chassis, Sshd, greeting, memory_of, processor_seconds, start_rpcbind, wait_until

MIB = 1 << 20


def login_words():
    """Returns the command line of a login that does nothing."""
    known = f"{os.environ['LAB']}/known_hosts"
    with open(known, "w") as file:
        file.write(f"{os.environ['LAB_HOST']} {os.environ['LAB_HOST_KEY']}\n")
    return ["sshpass", "-p", os.environ["LAB_PASSWORD"], "ssh", "-o", "StrictHostKeyChecking=yes", "-o",
            f"UserKnownHostsFile={known}", f"{os.environ['LAB_USER']}@{os.environ['LAB_HOST']}", "true"]


def client_seconds():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def fastest(walls):
    """Returns what a tenth of all come under: other people's work on the machine makes the rest slower, nothing faster."""
    return statistics.quantiles(walls, n=10)[0]


def measure_login(sshd, times=30):
    """Logs in, once at a time."""
    words = login_words()
    walls, server, client = [], sshd.seconds(), client_seconds()
    for _ in range(times):
        start = time.monotonic()
        subprocess.run(words, check=True)
        walls.append(time.monotonic() - start)
    return {"login_wall": fastest(walls), "login_server": (sshd.seconds() - server) / times,
            "login_client": (client_seconds() - client) / times}


def measure_start(times=30):
    """Has the client knock where nobody answers."""
    words = ["ssh", "-p", "1", os.environ["LAB_HOST"], "true"]
    client = client_seconds()
    for _ in range(times):
        subprocess.run(words, stderr=subprocess.DEVNULL, check=False)
    return {"start_client": (client_seconds() - client) / times}


def measure_rate(sshd, seconds=10, at_once=8):
    """Logs in as often as it can."""
    words = login_words()
    server, client, start = sshd.seconds(), client_seconds(), time.monotonic()
    running, done = [], 0
    while time.monotonic() < start + seconds or running:
        for process in [process for process in running if process.poll() is not None]:
            running.remove(process)
            if process.returncode != 0:
                sys.exit("fleet_lab: a login failed")
            done += 1
        if time.monotonic() < start + seconds and len(running) < at_once:
            running.append(subprocess.Popen(words))
        else:
            time.sleep(0.002)
    wall = time.monotonic() - start
    server, client = sshd.seconds() - server, client_seconds() - client
    return {"logins_a_second": done / wall, "busy_login_server": server / done, "busy_login_client": client / done,
            "busy_processors": (server + client) / wall}


def measure_sessions(sshd, build, times=15, large=64 * MIB):
    """Has one real daemon archive small pieces, and then a large one."""
    chassis = Chassis(build, 0, "1d")
    chassis.start()
    wait_until("the daemon", chassis.answers)
    chassis.configure()

    def archive(text):
        chassis.append(text)
        before = len(chassis.items())
        start = time.monotonic()
        chassis.ctl("run", "log")
        wait_until("an item", lambda: len(chassis.items()) > before and len(chassis.archived()) == chassis.written)
        wait_until("the end of the session", lambda: json.loads(chassis.ctl("status", "--json"))["sleeping"])
        return time.monotonic() - start

    archive("the first one claims the directory\n")
    server, client = sshd.seconds(), processor_seconds(chassis.daemon.pid)
    walls = [archive("a line of a log, as short as they are\n") for _ in range(times)]
    small_server = (sshd.seconds() - server) / times
    small_client = (processor_seconds(chassis.daemon.pid) - client) / times
    server, client = sshd.seconds(), processor_seconds(chassis.daemon.pid)
    archive(random.randbytes(large // 2).hex() + "\n")
    mib = large / MIB
    large_server = (sshd.seconds() - server - small_server) / mib
    large_client = (processor_seconds(chassis.daemon.pid) - client - small_client) / mib
    chassis.stop()
    return {"session_wall": fastest(walls), "session_server": small_server, "session_client": small_client,
            "mib_server": large_server, "mib_client": large_client}


def measure_max_startups(tries=60):
    """Returns, for so many logins that have begun, how many of those that come then are refused, and with what words."""
    sshd = Sshd(MAX_STARTUPS, grace=600)
    held, refused, words = [], {}, set()
    for begun in (9, 10, 30, 50, 70, 90, 99, 100):
        while len(held) < begun:
            greeting(held)
        count = 0
        for _ in range(tries):
            wait_until("those that have gone", lambda: sshd.connections() == len(held))
            line = greeting(None)
            if not line.startswith("SSH-2.0"):
                count += 1
                words.add(line)
        refused[begun] = count / tries
    memory = memory_of(sshd.pid) / len(held)
    for connection in held:
        connection.close()
    return {"refused": refused, "refusal": sorted(words), "begun_kib": memory}


def measure(build):
    rpcbind = start_rpcbind()
    sshd = Sshd("100")
    figures = {**measure_start(), **measure_login(sshd), **measure_rate(sshd), **measure_sessions(sshd, build), **measure_max_startups()}
    rpcbind.terminate()
    return figures


if __name__ == "__main__":
    print(json.dumps(measure(sys.argv[1])))

"""A simulation of one archive host and its chassis: when who logs in, whom sshd refuses, how long what takes.

The host's processors are shared evenly by all that is on its way, none of which can use more than one. A login counts
against MaxStartups from its connection to its end. The daemon's part is written after tavrend/plan/schedule.cpp and
tavrend/archiver/desk.cpp: first runs, retries, tasks that keep their place."""

import heapq
import random
from dataclasses import dataclass, field

MS = 1000
SYN_SECONDS = (0, 1, 3, 7, 15, 31, 63, 127)  # when a client that nobody answers knocks, counted from its start
WAKE, CONNECT, WORK, GIVE_UP, FAIL, OUTAGE, OVER = range(7)


@dataclass
class Costs:
    """Seconds of the host's processors, and seconds that pass without it."""
    login: float  # until the account is known
    session: float  # from then on
    mib: float
    login_wait: float = 0.0
    session_wait: float = 0.0
    start: float = 0.0  # of the same processors before the first knock, where the chassis live there, too


@dataclass
class Host:
    processors: float
    begin: int = 10  # MaxStartups
    rate: int = 30
    full: int = 100

    def refuses(self, pending, draw):
        """As sshd decides it, which has drawn a number from 0 to 1."""
        if pending < self.begin:
            return False
        if pending >= self.full:
            return True
        return draw * 100 < self.rate + (100 - self.rate) * (pending - self.begin) / (self.full - self.begin)


@dataclass
class Fleet:
    chassis: int
    tasks: dict = field(default_factory=lambda: {"LogTypeTask.log": 3600})  # intervals in seconds
    mib_a_day: float = 10.0  # of each chassis
    retry: float = 300.0
    jitter: float = 0.1
    spread: bool = True
    patience: float = 120.0  # ssh_connect_timeout
    power_on: float = 1.0  # seconds within which all of them are switched on
    growth: float = 1.0  # of the wait from one failure to the next
    longest: float = 3600.0  # that it grows to
    seeds: int = 0  # so many machines draw different numbers, and the others the same as one of them; 0: each its own


@dataclass
class Outage:
    begin: float
    end: float
    kind: str = "refused"  # at once; or "silent", nothing answers; or "broken", what comes behind the login fails


def checksum(text):
    """As tavrend/plan/checksum.h has it."""
    total = 0xCBF29CE484222325
    for byte in text.encode():
        total = (total ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return total


def first_delay(chassis, task, interval):
    return checksum(f"{chassis}\n{task}") % (interval * MS) / MS


def names_of(count):
    return [f"CHASSIS-{number:04}" for number in range(count)]


class Machine:
    """What one daemon has in its head."""

    def __init__(self, fleet, name, start, configured, seed):
        self.draw = random.Random(seed)
        self.intervals = list(fleet.tasks.values())
        delays = [first_delay(name, task, interval) if fleet.spread else 0 for task, interval in fleet.tasks.items()]
        self.due = [start + delay for delay in delays]
        self.not_before = configured
        self.archived_until = start
        self.session = None
        self.failures = 0
        self.late_since = None

    def next_look(self):
        return max(min(self.due), self.not_before)


class Session:
    """One visit of a machine, from its first knock to its end."""

    def __init__(self, machine, now):
        self.machine, self.woken, self.begun = machine, now, now
        self.pending = self.over = self.connected = self.working = self.starting = False


class Simulation:
    """Runs a fleet against a host; what happened is in its lists afterwards, seconds since the beginning."""

    def __init__(self, host, costs, fleet, outage=None, seed=1, starts=None, configured=None):
        self.host, self.costs, self.fleet, self.outage = host, costs, fleet, outage
        self.draw = random.Random(seed)
        self.now, self.count = 0.0, 0
        self.events = []  # (when, number, what, session or machine)
        self.jobs, self.virtual = [], 0.0  # (virtual end, number, session), and the virtual time
        self.active = self.pending = self.most_pending = 0
        self.attempts, self.refused, self.failed, self.done, self.late = [], [], [], [], []
        self.busy = {}  # seconds of the processors, by minute
        self.successes = []  # (when, machine), for each session that came to its end
        names = names_of(fleet.chassis)
        self.machines = []
        for number, name in enumerate(names):
            start = starts[number] if starts else self.draw.uniform(0, fleet.power_on)
            own_seed = seed * fleet.chassis + (number % fleet.seeds if fleet.seeds else number)
            machine = Machine(fleet, name, start, configured[number] if configured else start, own_seed)
            self.machines.append(machine)
            self.at(machine.next_look(), WAKE, machine)
        if outage:
            self.at(outage.begin, OUTAGE, None)

    def at(self, when, what, about):
        self.count += 1
        heapq.heappush(self.events, (when, self.count, what, about))

    def is_down(self):
        return self.outage is not None and self.outage.begin <= self.now < self.outage.end

    def is_broken(self):
        return self.is_down() and self.outage.kind == "broken"

    def run(self, until):
        while True:
            job_end = self.next_job_end()
            if self.events and self.events[0][0] <= job_end:
                when, _, what, about = heapq.heappop(self.events)
            else:
                when, what, about = job_end, OVER, None
            if when > until or when == float("inf"):
                self.pass_time(until)
                return self
            self.pass_time(when)
            self.handle(what, about)

    # The processors: a job ends when the virtual time has reached its end. That goes as fast as each of them is served.
    def pass_time(self, when):
        if self.active:
            self.virtual += (when - self.now) * min(1.0, self.host.processors / self.active)
            minute = int(self.now // 60)
            self.busy[minute] = self.busy.get(minute, 0) + (when - self.now) * min(self.active, self.host.processors)
        self.now = when

    def next_job_end(self):
        while self.jobs and self.jobs[0][2].over:
            heapq.heappop(self.jobs)
        if not self.jobs:
            return float("inf")
        rest = max(self.jobs[0][0] - self.virtual, 0.0)
        return self.now + rest / min(1.0, self.host.processors / self.active)

    def work(self, session, seconds):
        self.count += 1
        self.active += 1
        session.working = True
        heapq.heappush(self.jobs, (self.virtual + seconds, self.count, session))

    def handle(self, what, about):
        if what == WAKE:
            self.wake(about)
        elif what == OUTAGE:
            self.break_sessions()
        elif what == OVER:
            self.end_job()
        elif not about.over:
            if what == CONNECT:
                self.connect(about)
            elif what == WORK:
                self.work(about, self.seconds_of(about))
            elif what == FAIL or about.pending or not about.connected:
                self.fail(about)

    def wake(self, machine):
        if machine.session is not None or self.now < machine.next_look():
            return
        session = machine.session = Session(machine, self.now)
        if machine.late_since is None:
            machine.late_since = self.now
        if self.costs.start > 0:
            session.starting = True
            self.work(session, self.costs.start)
        else:
            self.knock(session)

    def knock(self, session):
        session.begun = self.now
        self.attempts.append(self.now)
        if not self.is_down() or self.is_broken():
            self.connect(session)
        elif self.outage.kind == "refused":
            self.fail(session)
        else:
            knocks = (self.now + seconds for seconds in SYN_SECONDS)
            answered = next((knock for knock in knocks if knock >= self.outage.end), float("inf"))
            if answered < self.now + self.fleet.patience:
                self.at(answered, CONNECT, session)
            else:
                self.at(self.now + self.fleet.patience, FAIL, session)

    def connect(self, session):
        if self.host.refuses(self.pending, self.draw.random()):
            self.refused.append(self.now)
            self.fail(session)
            return
        session.connected = session.pending = True
        self.pending += 1
        self.most_pending = max(self.most_pending, self.pending)
        self.at(session.begun + self.fleet.patience, GIVE_UP, session)
        self.at(self.now + self.costs.login_wait, WORK, session)

    def seconds_of(self, session):
        if session.pending:
            return self.costs.login
        waited = self.now - session.machine.archived_until
        return self.costs.session + self.costs.mib * self.fleet.mib_a_day * waited / 86400

    def end_job(self):
        _, _, session = heapq.heappop(self.jobs)
        self.active -= 1
        session.working = False
        if session.starting:
            session.starting = False
            self.knock(session)
        elif session.pending:
            session.pending = False
            self.pending -= 1
            self.at(self.now + self.costs.session_wait, WORK, session)
        elif self.is_broken():
            self.fail(session)
        else:
            self.succeed(session)

    def leave(self, session):
        session.over = True
        session.machine.session = None
        if session.pending:
            self.pending -= 1
        if session.working:
            self.active -= 1

    def succeed(self, session):
        machine = session.machine
        self.leave(session)
        machine.failures = 0
        machine.archived_until = self.now
        self.done.append(self.now)
        self.late.append(self.now - machine.late_since)
        self.successes.append((self.now, machine))
        machine.late_since = None
        for i, interval in enumerate(machine.intervals):
            if machine.due[i] <= session.woken:
                machine.due[i] += ((self.now - machine.due[i]) // interval + 1) * interval
        self.at(machine.next_look(), WAKE, machine)

    def fail(self, session):
        fleet, machine = self.fleet, session.machine
        self.leave(session)
        self.failed.append(self.now)
        usual = min(fleet.retry * fleet.growth**machine.failures, max(fleet.longest, fleet.retry))
        machine.failures += 1
        machine.not_before = self.now + usual * (1 + fleet.jitter * machine.draw.uniform(-1, 1))
        self.at(machine.next_look(), WAKE, machine)

    def break_sessions(self):
        """What is on its way when the host goes notices at once, or when a wait of a minute is over."""
        if self.outage.kind == "broken":
            return
        for machine in self.machines:
            session = machine.session
            if session is None:
                continue
            if self.outage.kind == "silent":
                self.at(self.now + 60, FAIL, session)
            else:
                self.fail(session)

    def times_of_first_success_after(self, moment):
        """Returns for each machine the seconds from moment to its first success then; infinite where there is none."""
        first = {}
        for when, machine in self.successes:
            if when >= moment:
                first.setdefault(id(machine), when - moment)
        return sorted(first.get(id(machine), float("inf")) for machine in self.machines)

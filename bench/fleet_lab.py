#!/usr/bin/python3
"""The archive host and the chassis of bench/fleet, real ones, inside tests/lab/archive-host. By itself it waits for what a
server leaves behind: fleet_lab.py PROGRAM ARGUMENT..."""
import ctypes
import os
import signal
import socket
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FAR_TOO_LONG = 120  # seconds
TICKS = os.sysconf("SC_CLK_TCK")
FIRST_PROGRAM_NUMBER = 0x20000000  # of those that anybody may use; each daemon here has one of its own
MAX_STARTUPS = "10:30:100"  # as it comes


def wait_until(what, is_so, seconds=FAR_TOO_LONG):
    """Looks until is_so() is true, and returns that."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        found = is_so()
        if found:
            return found
        time.sleep(0.01)
    sys.exit(f"fleet_lab: waited in vain for {what}")


def processor_seconds(pid):
    """Returns the processor time of a process and of those children that it has waited for, and they for theirs."""
    with open(f"/proc/{pid}/stat") as file:
        words = file.read().rpartition(")")[2].split()
    return sum(int(word) for word in words[11:15]) / TICKS


def children_of(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as file:
        return len(file.read().split())


def greeting(held):
    """Connects, says nothing, and returns what the server says first; None where nobody answers."""
    try:
        connection = socket.create_connection((os.environ["LAB_HOST"], int(os.environ["LAB_PORT"])))
    except ConnectionRefusedError:
        return None
    connection.settimeout(FAR_TOO_LONG)
    with connection.makefile("rb") as file:
        line = file.readline().decode().strip()
    if line.startswith("SSH-2.0") and held is not None:
        held.append(connection)
    else:
        connection.close()
    return line


def memory_of(pid):
    """Returns the KiB of memory that a process's children and theirs have, each its part of what several share."""
    total = 0
    with open(f"/proc/{pid}/task/{pid}/children") as file:
        for child in file.read().split():
            with open(f"/proc/{child}/smaps_rollup") as rollup:
                total += next(int(line.split()[1]) for line in rollup if line.startswith("Pss:")) + memory_of(child)
    return total


def reap(words):
    """Runs a program, and waits for it and for all that its processes leave behind: so their time is known, too."""
    set_child_subreaper = 36
    ctypes.CDLL(None).prctl(set_child_subreaper, 1, 0, 0, 0)
    subprocess.Popen(words)
    while True:
        try:
            os.wait()
        except ChildProcessError:
            return


class Sshd:
    """The archive host's one server, behind a process that waits for what its sessions leave behind."""

    def __init__(self, max_startups, grace=120):
        self.config, self.pid_file = os.environ["LAB_SSHD_CONFIG"], f"{os.environ['LAB']}/sshd.pid"
        self.stop()
        # Of several of these lines the last one counts.
        with open(self.config, "a") as file:
            file.write(f"MaxStartups {max_startups}\n")
        self.arguments = ["-f", self.config, "-E", os.environ["LAB_SSHD_LOG"], "-o", f"LoginGraceTime={grace}"]
        self.start()

    def start(self):
        self.reaper = subprocess.Popen([sys.executable, __file__, "/usr/sbin/sshd", "-D", *self.arguments])
        self.pid = int(wait_until("sshd", self.read_pid))
        wait_until("its answer", lambda: greeting(None) is not None)

    def read_pid(self):
        try:
            with open(self.pid_file) as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def stop(self):
        """Ends the server; sessions go on."""
        pid = int(self.read_pid())
        os.kill(pid, signal.SIGTERM)
        wait_until("the end of sshd", lambda: not self.read_pid() or not os.path.exists(f"/proc/{pid}"))

    def connections(self):
        return children_of(self.pid)

    def seconds(self):
        """Returns the processor time of all sessions since the start."""
        wait_until("the end of the sessions",
                   lambda: self.connections() == 0 and children_of(self.reaper.pid) == 1)
        return processor_seconds(self.pid) + processor_seconds(self.reaper.pid)


class Chassis:
    """A machine of the fleet: a real daemon with a home, a log and a directory on the archive host of its own."""

    def __init__(self, build, number, interval):
        self.build, self.number = build, number
        self.name = f"CHASSIS-{number:04}"
        self.home = f"{os.environ['LAB']}/fleet/{number:04}"
        self.log = f"{self.home}/log"
        self.archive = f"{os.environ['LAB_ARCHIVE']}/{number:04}"
        os.makedirs(f"{self.home}/tavren_tmp")
        with open(f"{self.home}/tavren_tmp/tavrend_rpc_num", "w") as file:
            file.write(f"{FIRST_PROGRAM_NUMBER + number}\n")
        with open(f"{self.home}/tavrend.conf", "w") as file:
            file.write(f"[log]\nfollow = {self.log}\ninterval = {interval}\n")
        os.mkdir(self.archive)
        archive_root = os.stat(os.environ["LAB_ARCHIVE"])
        os.chown(self.archive, archive_root.st_uid, archive_root.st_gid)
        self.environment = dict(os.environ, TAVREN_HOME=self.home, HODRA_DIR=f"{self.home}/hodra",
                                LAB_ARCHIVE=self.archive)
        self.run("platform/hodra/hodra-put", "1", "setup_system_id_info", "1024", f"40={self.name}")
        self.written = 0
        self.append(os.urandom(1024).hex() + "\n")

    def run(self, program, *arguments):
        done = subprocess.run([f"{self.build}/{program}", *arguments], env=self.environment, check=True, text=True,
                              stdout=subprocess.PIPE, timeout=FAR_TOO_LONG)
        return done.stdout

    def ctl(self, *arguments):
        return self.run("tools/tavren_ctl", *arguments)

    def append(self, text):
        with open(self.log, "a") as file:
            file.write(text)
        self.written += len(text)

    def start(self):
        words = [f"{self.build}/tavrend/tavrend", "--config", f"{self.home}/tavrend.conf", "--state", f"{self.home}/state"]
        self.started = time.time()
        self.daemon = subprocess.Popen(words, env=self.environment)

    def answers(self):
        words = [f"{self.build}/tools/tavren_ctl", "state"]
        return subprocess.run(words, env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              check=False).returncode == 0

    def configure(self):
        self.run("bench/set_target")
        self.configured = time.time()

    def items(self):
        """Returns when the items of the archive were complete, in seconds since the epoch, in their order."""
        try:
            return sorted(entry.stat().st_mtime for entry in os.scandir(f"{self.archive}/log"))
        except FileNotFoundError:
            return []

    def archived(self):
        """Returns the bytes of the log that are in the archive, one item behind the other."""
        directory = f"{self.archive}/log"
        names = sorted(os.listdir(directory)) if os.path.isdir(directory) else []
        content = b""
        for name in names:
            with open(f"{directory}/{name}", "rb") as file:
                content += file.read()
        return content

    def stop(self):
        self.daemon.terminate()
        self.daemon.wait(FAR_TOO_LONG)


def start_rpcbind():
    process = subprocess.Popen([f"{ROOT}/tests/daemon/start-rpcbind"], stderr=subprocess.DEVNULL)
    wait_until("rpcbind", lambda: subprocess.run(["rpcinfo", "-p", "127.0.0.1"], stdout=subprocess.DEVNULL,
                                                 stderr=subprocess.DEVNULL, check=False).returncode == 0)
    return process


if __name__ == "__main__":
    reap(sys.argv[1:])

# soak.py BUILD SECONDS: clients of every kind against one job server, with random SIGKILLs.
#
# Run by script/soak in the private place that tests/sandbox/sandbox.sh makes. For half of the time
# clients, job children and the server are killed; then the server stays, so that its memory can be
# watched. Every job has a name of its own as its description. The record, to which all clients
# append, says of a job "tried" before its submission and "acked" after the server's "ok", "removing"
# before its removal and "removed" after the "ok". What a client was killed or cut off in is in
# between.

import collections
import multiprocessing
import os
import random
import re
import signal
import socket
import subprocess
import sys
import time

BUILD, SECONDS, PLACE = sys.argv[1], int(sys.argv[2]), os.environ["KELVO_SANDBOX"]
HOME, RECORD, RUNS = os.environ["HOME"], PLACE + "/record", PLACE + "/runs"
QUEUE, JOURNAL = HOME + "/.zojobs-node1", HOME + "/.zojobs.lock-node1"
# KiB: a rewrite holds the old text and the new one, a few hundred each; a leak has thousands of turns.
MOST_JOBS, MOST_GROWTH = 300, 3072
LONGEST_STALL = 35  # seconds without a job that starts: a dead job child is looked for every 30
COMMANDS = ("true", "sleep 1", "echo a:b\\\\:c; (sleep 0.5; echo d) & wait", "exit 3", "kill -9 $$",
            "yes | head -c 300000", ": " + "x:\\" * 5000)


def note(word, name):
    with open(RECORD, "ab", buffering=0) as record:
        record.write(f"{word} {name}\n".encode())


# Returns what came until the connection ended or broke. A nuisance does not read.
def send(data, is_nuisance=False):
    reply = b""
    try:
        with socket.create_connection(("127.0.0.1", 7160), timeout=60) as connection:
            if is_nuisance:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
            connection.sendall(data)
            time.sleep(random.random() / 3 if is_nuisance else 0)
            while not is_nuisance and (piece := connection.recv(65536)):
                reply += piece
    except OSError:
        time.sleep(0.1)
    return reply.decode()


def ask(request):
    return send(f"tester {request}\n".encode())


# Names, directories and ids of some listed jobs, and how many jobs there are.
def sample(most):
    jobs = re.findall(r'^\d+ "[^"\n]*" "([^"\n]*)" (\S+) (\d+) \d+ \d+ 0$', ask("list"), re.M)
    return random.sample(jobs, min(len(jobs), most)), len(jobs)


def submitter(worker, submit=lambda *job: ask('submit "%s" "%s" "%s"' % job) == "ok\n"):
    for n in range(1 << 30):
        name = f"job-{worker}-{n}"
        directory = random.choice(("", f"{PLACE}/{name}"))
        if directory:
            os.mkdir(directory)
        note("tried", name)
        if submit(f"echo {name} >>{RUNS}; " + random.choice(COMMANDS), name, directory):
            note("acked", name)
        while sample(0)[1] > MOST_JOBS:
            time.sleep(0.2)


# zojob starts the server when none answers.
def zojob(worker):
    submitter(worker, lambda command, name, directory: subprocess.run(
        (BUILD + "/bin/zojob", "submit", "-q", "-L", name, "-C", directory or HOME, command),
        stderr=subprocess.DEVNULL).returncode == 0)


def remover(_):
    while True:
        jobs, total = sample(5)
        for name, directory, number in jobs:
            note("removing", name)
            if ask(f"remove {number} {directory}") == "ok\n":
                note("removed", name)
        time.sleep(0 if total > MOST_JOBS / 2 else 0.3)


def runner(_):
    while True:
        ask(random.choices(("run", "status", "kill", "done", "nonsense"), (8, 8, 1, 1, 1))[0])
        for _, directory, number in sample(1)[0]:
            ask(f"run {number} {directory}")
        time.sleep(random.random())


def nuisance(_):
    while True:
        send(random.choice((b"", b"tester sub", b"tester list\n", b"\0\xff\n")), is_nuisance=True)
        time.sleep(random.random() * 3)


# Ids of the servers, of the job children (like them, but lead no session) or of all.
def processes(kind):
    lines = subprocess.check_output(("ps", "-eo", "pid,sid,stat,comm"), text=True).split("\n")[1:-1]
    rows = [line.split() for line in lines if not line.endswith(" ps")]
    return [int(pid) for pid, session, state, name in rows if kind == "all" or
            name == "start" and state[0] != "Z" and (pid == session) == (kind == "servers")]


def resident(server):
    with open(f"/proc/{server}/status") as status:
        return int(re.search(r"VmRSS:\s+(\d+)", status.read())[1])


def is_saving():
    return os.path.exists(JOURNAL) and os.path.getsize(JOURNAL) > 0


# Keeps clients at work and kills at random. Returns a server and its memory when warmed up.
def disturb(kills):
    start, workers, watched = time.monotonic(), [None] * 10, None
    last, runs, stall = start, 0, 0
    for turn in range(1 << 30):
        for i, worker in enumerate(workers):
            if worker and worker.exitcode not in (None, -signal.SIGKILL):
                sys.exit("soak: a client has ended by itself")
            if not worker or worker.exitcode:
                function = (submitter, zojob, remover, runner, nuisance)[i % 5]
                workers[i] = multiprocessing.Process(target=function, args=(f"{turn}-{i}",))
                workers[i].start()
        time.sleep(random.random() / 8)
        if os.path.exists(RUNS) and os.path.getsize(RUNS) != runs:
            last, runs = time.monotonic(), os.path.getsize(RUNS)
        stall = max(stall, time.monotonic() - last)
        passed = (time.monotonic() - start) / SECONDS
        kind = {0: "servers", 8: "children"}.get(turn % 16, "clients" if turn % 4 == 1 else "")
        if kind and (kind != "servers" or passed < 0.5):
            pids = [worker.pid for worker in workers] if kind == "clients" else processes(kind)
            limit = time.monotonic() + random.choice((0, 1))
            while kind == "servers" and not is_saving() and time.monotonic() < limit:
                pass
            for pid in random.sample(pids, min(len(pids), 1)):
                os.kill(pid, signal.SIGKILL)
                kills[kind] += 1
                kills["saves"] += kind == "servers" and is_saving()
        if passed > 0.65 and not watched:
            watched = [(pid, resident(pid)) for pid in processes("servers")][0]
        if passed > 1:
            break
    for worker in workers:
        worker.kill()
        worker.join()
    return (*watched, stall)


# The records of the queue file, as lists of fields.
def queue():
    with open(QUEUE) as file:
        return [re.findall(r"((?:[^:\\\n]|\\.)*)[:\n]", line) for line in file]


def wait_for(condition, seconds, pause=0.2):
    end = time.monotonic() + seconds
    while not (is_true := condition()) and time.monotonic() < end:
        time.sleep(pause)
    return is_true


# What a server has open besides /dev/null; nothing once it has come to rest.
def open_files(server):
    try:
        names = [os.readlink(f"/proc/{server}/fd/{fd}") for fd in os.listdir(f"/proc/{server}/fd")]
    except FileNotFoundError:  # closed in between
        names = []
    return [name for name in names if not name.endswith("/null")]


def is_settled():
    children = processes("children")
    return all(job[0] != "11" or int(job[8]) in children for job in queue())


def main():
    kills = collections.Counter()
    server, before, stall = disturb(kills)
    after = resident(server)
    # A job whose child was killed is ended at the server's next look, 30 seconds after the last one.
    is_quiet = wait_for(is_settled, 40)
    is_quiet &= wait_for(lambda: ask("status") != "running\n" or ask("kill") == "ok\n", 70, 32)
    # Clients that were killed may have left a request behind, and what they had started still asks.
    wait_for(lambda: len(open_files(server)) < 2, 20)
    files = open_files(server)
    ask("quit")
    wait_for(lambda: len(processes("all")) == 2, 10)  # the sandbox's first and this one
    with open(RECORD) as file:
        said = {tuple(line.split()) for line in file}
    tried, acked, removing, removed = ({name for word, name in said if word == wanted}
                                       for wanted in ("tried", "acked", "removing", "removed"))
    names = [job[2] for job in queue() if len(job) == 9]
    with open(RUNS) as file:
        runs = file.read().split()
    print(f"soak: {SECONDS} s; killed: {dict(kills)}; {len(acked)} jobs acknowledged,"
          f" {len(removed)} removed, {len(names)} in the queue at the end;"
          f" {len(runs)} runs, longest time without a start {stall:.1f} s;"
          f" server: {before} KiB warm, {after} KiB at the end")
    faults = {"torn records": len(queue()) - len(names),
              "acknowledged jobs lost": len(acked - removing - set(names)),
              "removed jobs come back": len(removed & set(names)),
              "jobs twice": len(names) - len(set(names)),
              "jobs made up": len(set(names) - tried),
              "jobs run twice": len(runs) - len(set(runs)),
              "seconds of stall too much": max(0, int(stall - LONGEST_STALL)),
              "bytes of journal left": os.path.getsize(JOURNAL),
              "processes left": len(processes("all")) - 2,
              "descriptors left": max(0, len(files) - 1),  # besides the one that listens
              "KiB grown too much": max(0, after - before - MOST_GROWTH),
              "server not at rest": int(not is_quiet)}
    print("soak:", ", ".join(f"{count} {what}" for what, count in faults.items()))
    if faults["descriptors left"]:
        print("soak: open:", *files)
    if any(faults.values()) or len(acked) < SECONDS or min(kills.values()) == 0:
        sys.exit("soak: FAILED")


main()

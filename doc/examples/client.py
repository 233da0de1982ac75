#!/usr/bin/env python3
"""A client of the job server in plain Python: runs one job and shows what it printed.

usage: client.py COMMAND-LINE        for instance: client.py 'ls -l; date'
"""
import os
import pwd
import re
import socket
import sys
import time

PORT = 7160
WAITING, RUNNING, DONE, KILLED = 10, 11, 12, 13
USER = pwd.getpwuid(os.getuid()).pw_name


def ask(request):
    """Sends one request line on a connection of its own; returns the reply's lines."""
    with socket.create_connection(("127.0.0.1", PORT), timeout=60) as connection:
        connection.sendall(os.fsencode(f"{USER} {request}\n"))
        with connection.makefile("rb") as reply:
            return os.fsdecode(reply.read()).split("\n")[:-1]


def jobs():
    """The queue, one dictionary a job."""
    lines = ask("list")
    if lines[0] == "error":
        sys.exit("the server on this port serves another user")
    pattern = re.compile(r'(\d+) "([^"]*)" "([^"]*)" (\S+) (\d+) (\d+) (\d+) (-?\d+)')
    names = ("state", "command", "description", "directory", "id", "start", "end", "reserved")
    return [dict(zip(names, pattern.fullmatch(line).groups())) for line in lines[1:]]


def main(command):
    if re.search(r'["\r\n]', command):
        sys.exit("a request cannot carry a double quote or a line end")
    before = {(job["id"], job["directory"]) for job in jobs()}
    if ask(f'submit "{command}" "from Python" ""') != ["ok"]:
        sys.exit("not queued")
    mine = [job for job in jobs()
            if job["command"] == command and (job["id"], job["directory"]) not in before][-1]
    name = f'{mine["id"]} {mine["directory"]}'
    if ask(f"run {name}") != ["ok"]:
        ask(f"remove {name}")
        sys.exit("not started: another job is running")
    state = RUNNING
    while state == RUNNING:
        time.sleep(0.5)
        state = next((int(job["state"]) for job in jobs()
                      if f'{job["id"]} {job["directory"]}' == name), KILLED)
    with open(mine["directory"] + "/log", errors="replace") as log:
        print(log.read(), end="")
    ask(f"remove {name}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])

# Commands of gdb for script/debug: all processes of a test are debugged, and the end of one of them
# stops nothing. Only breakpoints and crashes do.

import time

import gdb

for line in ("set pagination off", "set confirm off", "set breakpoint pending on",
             "set detach-on-fork off", "set follow-fork-mode parent", "set schedule-multiple on",
             "set print inferior-events off", "set print symbol-loading off",
             "set libthread-db-search-path", "handle all nostop noprint pass",
             "handle SIGSEGV SIGABRT SIGBUS SIGFPE SIGILL SIGTRAP stop print"):
    gdb.execute(line, to_string=True)

events = [None]  # the last one tells what has stopped all processes
gdb.events.stop.connect(events.append)
gdb.events.exited.connect(events.append)
is_going = False


# Goes on as long as it was the end of a process that stopped the others.
def go_on():
    global is_going
    if is_going:  # in its own "continue"
        return
    is_going = True
    misses = 0
    while (isinstance(events[-1], gdb.ExitedEvent) and misses < 100 and
           (living := [i for i in gdb.inferiors() if i.pid])):
        try:
            gdb.execute(f"inferior {living[0].num}", to_string=True)
            gdb.execute("continue")
        except gdb.error:  # another process is just ending
            time.sleep(0.05)
            misses += 1
    is_going = False


for command in ("run", "continue"):
    gdb.execute(f"define hookpost-{command}\npython go_on()\nend")

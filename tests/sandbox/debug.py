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

theEnded = False


def on_stop(_):
    global theEnded
    theEnded = False


def on_exit(_):
    global theEnded
    theEnded = True


gdb.events.stop.connect(on_stop)
gdb.events.exited.connect(on_exit)


# Goes on as long as it was the end of a process that stopped the others.
class GoOn(gdb.Command):
    def __init__(self):
        super().__init__("go-on", gdb.COMMAND_RUNNING)
        self.is_going = False

    def invoke(self, _, is_from_tty):
        if self.is_going:
            return
        self.is_going = True
        misses = 0
        while theEnded and misses < 100 and (living := [i for i in gdb.inferiors() if i.pid]):
            try:
                gdb.execute(f"inferior {living[0].num}", to_string=True)
                gdb.execute("continue")
            except gdb.error:  # another process is just ending
                time.sleep(0.05)
                misses += 1
        self.is_going = False


GoOn()
gdb.execute("define hookpost-run\ngo-on\nend")
gdb.execute("define hookpost-continue\ngo-on\nend")

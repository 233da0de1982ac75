#ifndef ZOPROCESS_H
#define ZOPROCESS_H

/// What this system's processes owe to each other and to the commands that they start.
class ZoProcess
{
public:
    /// Sleeps whole seconds, however many signals arrive meanwhile.
    static void pause(int seconds);

    /// Opens /dev/null in place of each missing standard descriptor, so that no socket or file can
    /// get one of their numbers and be taken for output.
    static void openStandardDescriptors();

    /// Everything but the standard descriptors closes at the next exec. Safe after fork in a
    /// process with threads.
    static void closeDescriptorsOnExec();

    /// Closes everything but the standard descriptors and the given one. Returns its new number.
    static int closeOthers(int kept);

    /// Leaves the session of a process just forked, its signals and its standard descriptors, so
    /// that nothing that happens there concerns this one, and nobody there waits for its end. Safe
    /// after fork in a process with threads.
    static void detach();

    /// Gives every signal its default action and unblocks all: a program that ignores SIGPIPE or
    /// SIGCHLD would hand that on to every command. Safe after fork in a process with threads.
    static void resetSignals();
};

#endif

#ifndef WINDOWWORLD_H
#define WINDOWWORLD_H

#include "tests/sandbox/Sandbox.h"

#include <QString>
#include <functional>
#include <string>
#include <vector>

class QPalette;

/// What tests of the window need besides the sandbox.
class WindowWorld
{
public:
    /// The installation directory: the build tree has its shape.
    static QString root() { return KELVO_BUILD_DIR; }

    /// Handles the window's events until the condition holds or the seconds have passed; returns
    /// whether it holds.
    static bool waitFor(const std::function<bool()>& condition, double seconds = 15);

    /// A job that is over, or waits, without ever having been run.
    struct Past {
        std::string command;
        int state;          ///< of ZoJob
        int status;         ///< that the command ended with
        long long started;  ///< seconds before now
        long long seconds;
        const char* output;
    };

    /// Submits the jobs to the server of this world, as the window does, and has the queue say what
    /// became of them.
    static void makePast(const std::vector<Past>& jobs);

    /// Has the queue of this world hold the jobs of another application with the ids from 1 on, so
    /// many, all of them waiting.
    static void makeWaiting(int count);

    /// Ends the server of this world, if there is one.
    static void endServer();

    static QPalette light();
    static QPalette dark();
};

#endif

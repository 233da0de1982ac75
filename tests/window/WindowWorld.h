#ifndef WINDOWWORLD_H
#define WINDOWWORLD_H

#include "tests/sandbox/Sandbox.h"

#include <QString>
#include <functional>

/// What tests of the window need besides the sandbox.
class WindowWorld
{
public:
    /// The installation directory: the build tree has its shape.
    static QString root() { return KELVO_BUILD_DIR; }

    /// Handles the window's events until the condition holds or the seconds have passed; returns
    /// whether it holds.
    static bool waitFor(const std::function<bool()>& condition, double seconds = 15);

    /// Has the queue of this world hold the jobs of another application with the ids from 1 on, so
    /// many, all of them waiting.
    static void makeWaiting(int count);

    /// Ends the server of this world, if there is one.
    static void endServer();
};

#endif

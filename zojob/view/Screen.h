#ifndef SCREEN_H
#define SCREEN_H

#include <string>
#include <vector>

/// The terminal that a list is watched on: its other screen, without a cursor, and keys that are
/// taken one by one and not shown. What was there before comes back at the end, also when a signal
/// ends the process, and while it is stopped. In the background it stops, as any program does that
/// wants the terminal. There is one object at a time.
class Screen
{
public:
    /// Takes the terminal, where standard output is one that can place its cursor.
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// Whether there is one. Without, nothing else may be called.
    bool isOpen() const { return isTaken; }

    /// Shows these lines and nothing else. They must fit.
    void show(const std::vector<std::string>& lines);

    /// Waits for a key, at most so many seconds, and for the descriptor to become readable, unless
    /// it is -1. Returns the key, or 0. Afterwards `isStale` tells whether the screen must be drawn
    /// anew: it has another size, or something else was there.
    char wait(int descriptor, double seconds);

    bool isStale = false;

private:
    bool isTaken = false;
    bool hasKeys = false;  // standard input is a terminal, too
};

#endif

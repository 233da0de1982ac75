#include "zojob/view/Screen.h"

#include "zojob/Report.h"
#include "zojob/view/Table.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

static const char ENTER[] = "\033[?1049h\033[?25l";  // the other screen, no cursor
static const char LEAVE[] = "\r\n\033[?25h\033[?1049l";

static struct termios before;         // as it is given back
static struct termios keys;           // as it is wanted
static sigset_t whileWaiting;         // the signals that are held but while somebody waits
static volatile sig_atomic_t isLost;  // the screen was somebody else's meanwhile, or has changed
static volatile sig_atomic_t isHere;  // it is the other one, and nobody has left it

/// In the background this stops the process. Failures are those of a terminal that has gone.
static void take()
{
    (void)::tcsetattr(STDOUT_FILENO, TCSANOW, &keys);
    if (!isHere)  // twice, and a terminal could forget where the cursor was
        (void)!::write(STDOUT_FILENO, ENTER, sizeof ENTER - 1);
    isHere = isLost = 1;
}

/// In the background the terminal is somebody else's already.
static void giveBack()
{
    const pid_t owner = ::tcgetpgrp(STDOUT_FILENO);  // -1: a terminal that controls nobody here
    if (owner >= 0 && owner != ::getpgrp())
        return;
    (void)::tcflow(STDOUT_FILENO, TCOON);  // Ctrl-S would make us wait for ever
    (void)!::write(STDOUT_FILENO, LEAVE, sizeof LEAVE - 1);
    isHere = 0;
    (void)::tcsetattr(STDOUT_FILENO, TCSANOW, &before);
}

static void handle(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);  // fails for no signal of ours
}

/// Lets the signal do what it does without us.
static void obey(int signal)
{
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, signal);
    handle(signal, SIG_DFL);
    ::raise(signal);
    ::sigprocmask(SIG_UNBLOCK, &one, nullptr);
}

static void end(int signal)
{
    giveBack();
    obey(signal);
}

static void stop(int signal)
{
    giveBack();
    obey(signal);
    handle(signal, stop);
    take();  // where nobody can continue a process, none is stopped
}

static void goOn(int)
{
    take();
}

static void noteSize(int)
{
    isLost = 1;
}

static void handleSignals()
{
    static const std::pair<int, void (*)(int)> handlers[] = {
        { SIGINT, end },   { SIGTERM, end },  { SIGHUP, end },        { SIGQUIT, end },
        { SIGTSTP, stop }, { SIGCONT, goOn }, { SIGWINCH, noteSize },
    };
    sigset_t held;
    ::sigemptyset(&held);
    for (const auto& [signal, handler] : handlers) {
        struct sigaction current = {};
        ::sigaction(signal, nullptr, &current);
        if (current.sa_handler == SIG_IGN && signal != SIGCONT)
            continue;  // as under nohup
        if (handler != end)
            ::sigaddset(&held, signal);
        handle(signal, handler);
    }
    // Not in the middle of a drawing. What ends the process must not wait for a slow look.
    ::sigprocmask(SIG_BLOCK, &held, &whileWaiting);
}

Screen::Screen()
{
    if (!isCapable() || ::tcgetattr(STDOUT_FILENO, &before) != 0)
        return;
    // What a process in the background is stopped at; and then it may be another setting.
    if (::tcsetattr(STDOUT_FILENO, TCSANOW, &before) != 0 ||
        ::tcgetattr(STDOUT_FILENO, &before) != 0)
        return;
    keys = before;
    keys.c_lflag &= ~(tcflag_t)(ICANON | ECHO);
    keys.c_cc[VMIN] = 1;
    keys.c_cc[VTIME] = 0;
    isTaken = true;
    hasKeys = ::isatty(STDIN_FILENO);
    handleSignals();
    take();
    isLost = 0;  // what comes first is drawn anyway
}

Screen::~Screen()
{
    if (isTaken)
        giveBack();
}

void Screen::show(const std::vector<std::string>& lines)
{
    print(lines.empty() ? "\033[H\033[J" : "\033[H");
    for (std::size_t i = 0; i < lines.size(); ++i) {
        // Cleared first: a full line has no room behind it.
        const bool isLast = i + 1 == lines.size();
        print((isLast ? "\033[J" : "\033[K") + lines[i] + (isLast ? "" : "\n"));
    }
    isStale = false;
}

char Screen::wait(int descriptor, double seconds)
{
    struct pollfd ready[] = { { hasKeys ? STDIN_FILENO : -1, POLLIN, 0 },
                              { descriptor, POLLIN, 0 } };
    const double whole = std::floor(std::max(seconds, 0.0));
    const struct timespec time = { (time_t)whole, (long)(1e9 * (std::max(seconds, 0.0) - whole)) };
    const int n = ::ppoll(ready, 2, &time, &whileWaiting);
    isStale = isLost;
    isLost = 0;
    char key = 0;
    if (n > 0 && ready[0].revents)
        hasKeys = ::read(STDIN_FILENO, &key, 1) > 0;  // else the terminal has gone
    return key;
}

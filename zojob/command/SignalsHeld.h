#ifndef SIGNALSHELD_H
#define SIGNALSHELD_H

#include <csignal>

/// Keeps Ctrl-C and its like waiting while jobs are half made, or half removed.
class SignalsHeld
{
public:
    SignalsHeld()
    {
        sigset_t held;
        ::sigemptyset(&held);
        for (const int signal : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
            ::sigaddset(&held, signal);
        ::sigprocmask(SIG_BLOCK, &held, &before);
    }
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &before, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before;
};

#endif

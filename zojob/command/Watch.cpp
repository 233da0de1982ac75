#include "zojob/command/Watch.h"

#include "jobs/Cluster.h"
#include "jobs/JobError.h"
#include "jobs/JobLog.h"
#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/view/Table.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

static const double LOOK = 0.5;              // seconds, where no descriptor tells of a change
static const std::size_t LAST_BYTES = 4096;  // enough of a line for any screen

static struct termios before;

static void restoreAndEnd(int signal)
{
    (void)::tcsetattr(STDIN_FILENO, TCSANOW, &before);  // nothing can be done about it here
    std::signal(signal, SIG_DFL);
    ::raise(signal);
}

/// Takes single keys from the terminal, without showing them, as long as it exists.
class Keyboard
{
public:
    Keyboard()
    {
        // A process in the background would be stopped by the change.
        if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO) ||
            ::tcgetpgrp(STDIN_FILENO) != ::getpgrp() || ::tcgetattr(STDIN_FILENO, &before) != 0)
            return;
        struct termios keys = before;
        keys.c_lflag &= ~(tcflag_t)(ICANON | ECHO);
        for (const int signal : { SIGINT, SIGTERM, SIGHUP, SIGQUIT })
            std::signal(signal, restoreAndEnd);
        isOpen = ::tcsetattr(STDIN_FILENO, TCSANOW, &keys) == 0;
    }
    ~Keyboard()
    {
        if (isOpen)
            (void)::tcsetattr(STDIN_FILENO, TCSANOW, &before);
    }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// Waits until the queue may have changed, at most so many seconds; true when "q" was typed.
    bool isQuit(QueueWatch& watch, double seconds)
    {
        if (!isOpen) {
            watch.wait(seconds);
            return false;
        }
        struct pollfd ready[] = { { STDIN_FILENO, POLLIN, 0 }, { watch.descriptor(), POLLIN, 0 } };
        if (watch.descriptor() < 0)
            seconds = std::min(seconds, LOOK);
        if (::poll(ready, 2, (int)(1000 * seconds) + 1) <= 0 || !ready[0].revents)
            return false;
        char key;
        const ssize_t n = ::read(STDIN_FILENO, &key, 1);
        isOpen = n > 0;  // else the terminal has gone, and what follows from that comes by itself
        return n > 0 && (key == 'q' || key == 'Q');
    }

private:
    bool isOpen = false;
};

/// The running jobs, then the waiting ones, then what ended last.
static std::vector<Listed> mostWanted(std::vector<Listed> jobs)
{
    const auto rank = [](const Listed& one) {
        return one.job.isRunning() ? 0 : one.state == JobState::WAITING ? 1 : 2;
    };
    std::stable_sort(jobs.begin(), jobs.end(), [rank](const Listed& one, const Listed& other) {
        if (rank(one) == 2 && rank(other) == 2)
            return one.job.endTime > other.job.endTime;
        return rank(one) < rank(other);
    });
    return jobs;
}

/// What the running job has printed last, on a line; empty where there is nothing.
static std::string lastOutput(const std::vector<Listed>& jobs)
{
    for (const Listed& one : jobs) {
        if (!one.job.isRunningHere())
            continue;
        try {
            JobLog log(one.job);
            if (!log.open())
                continue;
            log.skipToLast(1);
            std::string text = log.read(LAST_BYTES);
            text.erase(text.find_last_not_of("\r\n") + 1);
            text.erase(0, text.rfind('\r') + 1);  // a line written over: what stands there now
            return text.empty() ? "" : printable(one.name + ": " + text);
        } catch (const JobError&) {  // no output to show, and the list is what was asked for
        }
    }
    return "";
}

/// Writes one screen over the one before.
static void showScreen(const std::vector<Listed>& all, const Options& options)
{
    const TerminalSize size = terminalSize();
    const std::string last = lastOutput(all);
    std::vector<Listed> jobs = selectJobs(all, options);
    const std::size_t others = (options.noHeader ? 0 : 2) + !last.empty() + 1;  // cursor's line
    const std::size_t room = size.lines > others + 1 ? size.lines - others : 1;
    const std::size_t hidden = jobs.size() > room ? jobs.size() - (room - 1) : 0;
    if (hidden > 0) {
        jobs = mostWanted(jobs);
        jobs.resize(jobs.size() - hidden);
    }
    std::vector<std::string> lines = tableLines(jobs, options);
    if (hidden > 0)
        lines.push_back("... " + std::to_string(hidden) + " more");
    if (!options.noHeader)
        lines.push_back(cut(summary(all), size.columns));
    if (!last.empty())
        lines.push_back(cut(last, size.columns));
    print("\033[H");
    for (const std::string& line : lines)
        print("\033[K" + line + "\n");  // cleared first: a full line has no room behind it
    print("\033[J");
}

static void showPlain(const std::vector<Listed>& all, const Options& options)
{
    for (const std::string& line : tableLines(selectJobs(all, options), options))
        print(line + "\n");
    if (!options.noHeader)
        print(summary(all) + "\n");
}

int watchList(const Server& server, const Options& options)
{
    QueueWatch watch(server);
    Keyboard keyboard;
    Queue queue;
    const bool isScreen = ::isatty(STDOUT_FILENO);
    if (isScreen)
        print("\033[2J");
    for (double due = 0;;) {
        if (!watch.hasChanged() && secondsNow() < due) {
            if (keyboard.isQuit(watch, due - secondsNow()))
                return DONE_WELL;
            continue;
        }
        if (watch.hasChanged())
            queue = watch.read();
        else
            readClusters(queue.jobs);  // no queue tells of what happens there
        const std::vector<Listed> all = listedJobs(queue);
        due = secondsNow() + options.watch;
        if (isScreen)
            showScreen(all, options);
        else
            showPlain(all, options);
        if (!flushPrinted())
            return DONE_WELL;
    }
}

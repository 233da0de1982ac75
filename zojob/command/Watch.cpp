#include "zojob/command/Watch.h"

#include "jobs/Cluster.h"
#include "jobs/JobError.h"
#include "jobs/JobLog.h"
#include "jobs/QueueWatch.h"
#include "jobs/Text.h"
#include "zojob/Report.h"
#include "zojob/view/Screen.h"
#include "zojob/view/Table.h"

#include <algorithm>

static const double LOOK = 0.5;              // seconds, where no descriptor tells of a change
static const std::size_t LAST_BYTES = 4096;  // enough of a line for any screen

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

/// What fits on the screen, and what is wanted most where not all does.
static std::vector<std::string> screenLines(const std::vector<Listed>& all,
                                            const std::string& trouble, const Options& options)
{
    const TerminalSize size = terminalSize();
    std::vector<std::string> below;
    if (!options.noHeader)
        below = summary(all, trouble, size.columns);
    const std::string last = lastOutput(all);
    if (!last.empty())
        below.push_back(cut(last, size.columns));
    std::vector<Listed> jobs = selectJobs(all, options);
    const std::size_t others = !options.noHeader + below.size();
    const std::size_t room = size.lines > others + 1 ? size.lines - others : 1;
    if (jobs.size() > room) {
        const std::size_t hidden = jobs.size() - (room - 1);
        jobs = mostWanted(jobs);
        jobs.resize(room - 1);
        below.insert(below.begin(), "... " + std::to_string(hidden) + " more");
    }
    std::vector<std::string> lines = tableLines(jobs, options, size.columns);
    lines.insert(lines.end(), below.begin(), below.end());
    lines.resize(std::min(lines.size(), size.lines));
    return lines;
}

/// Waits until the queue may have changed, or the screen, at most so many seconds; true when "q"
/// was typed.
static bool isQuit(Screen& screen, QueueWatch& watch, double seconds)
{
    if (!screen.isOpen()) {
        watch.wait(seconds);
        return false;
    }
    const char key =
        screen.wait(watch.descriptor(), watch.descriptor() < 0 ? std::min(seconds, LOOK) : seconds);
    return key == 'q' || key == 'Q';
}

int watchList(const Server& server, const Options& options)
{
    QueueWatch watch(server);
    Queue queue = watch.read();
    Screen screen;
    for (double due = 0;;) {
        if (!watch.hasChanged() && !screen.isStale && secondsNow() < due) {
            if (isQuit(screen, watch, due - secondsNow()))
                return DONE_WELL;
            continue;
        }
        if (watch.hasChanged())
            queue = watch.read();
        else
            readClusters(queue.jobs);  // no queue tells of what happens there
        const std::vector<Listed> all = listedJobs(queue);
        due = secondsNow() + options.watch;
        if (screen.isOpen())
            screen.show(screenLines(all, queue.trouble, options));
        else
            printList(selectJobs(all, options), all, queue.trouble, options);
        if (!flushPrinted())
            return DONE_WELL;
    }
}

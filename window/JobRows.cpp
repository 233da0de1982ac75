#include "window/JobRows.h"

#include "jobs/Cluster.h"
#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobLog.h"
#include "jobs/JobName.h"
#include "jobs/JobScript.h"
#include "jobs/JobState.h"
#include "window/ScriptParts.h"
#include "window/TerminalText.h"

#include <algorithm>
#include <fstream>
#include <iterator>

static const int MOST_LOOKED_AT = 500;  // waiting jobs; of more, a look at each costs too much
static const int LAST_LINES = 3;
static const int LAST_BYTES = 2048;  // in which they are looked for

static QString text(const std::string& bytes)
{
    return QString::fromUtf8(bytes.data(), int(bytes.size()));
}

static QByteArray bytesOf(const std::string& bytes)
{
    return QByteArray(bytes.data(), int(bytes.size()));
}

static ZoJobRow::State stateOf(const Job& job)
{
    switch (jobState(job)) {
    case JobState::WAITING:
        return ZoJobRow::WAITING;
    case JobState::RUNNING:
        return ZoJobRow::RUNNING;
    case JobState::DONE:
        return ZoJobRow::DONE;
    case JobState::FAILED:
        return ZoJobRow::FAILED;
    case JobState::TIMED_OUT:
        return ZoJobRow::TIMED_OUT;
    case JobState::SKIPPED:
        return ZoJobRow::SKIPPED;
    case JobState::KILLED:
        return ZoJobRow::KILLED;
    case JobState::CANCELLED:
        return ZoJobRow::CANCELLED;
    }
    return ZoJobRow::UNKNOWN;
}

std::string commandOf(const Job& job)
{
    return JobDirectory(job).text("script");
}

/// The last lines of the output that are not empty, as a terminal would show them.
static QString lastLines(const Job& job)
{
    JobLog log(job);
    TerminalText terminal;
    try {
        if (!log.open())
            return QString();
        log.goToLast(LAST_BYTES);
        terminal.take(QByteArray::fromStdString(log.read(LAST_BYTES)));
    } catch (const JobError&) {
        return QString();  // whoever selects the job is told why there is no output
    }
    terminal.ended.append(terminal.current());
    QStringList lines;
    for (auto line = terminal.ended.rbegin(); line != terminal.ended.rend(); ++line) {
        QString shown;
        for (const TerminalRun& run : *line)
            shown += run.text;
        if (!shown.trimmed().isEmpty() && lines.size() < LAST_LINES)
            lines.prepend(shown.trimmed());
    }
    return lines.join('\n');
}

ZoJobRow JobRows::makeRow(const Job& job)
{
    ZoJobRow row;
    row.id = job.id;
    row.directory = bytesOf(job.directory);
    row.status = exitStatus(job);
    row.state = stateOf(job);
    row.started = job.startTime;
    row.ended = job.endTime;
    row.ran = job.hasEnded() ? job.runTime() : 0;
    row.ours = JobDirectory(job).isOurs();
    const GivenTexts given = row.ours ? JobDirectory(job).given() : GivenTexts();
    row.command = text(given.command.empty() ? job.command : given.command);
    row.description = text(given.label ? *given.label : job.description);
    if (given.command.size() > 0 && !given.label)
        row.description = row.command;  // the queue's has other quotes
    if (row.description.isEmpty())
        row.description = row.command;
    row.description = text(clusterText(job)) + row.description;
    if (row.hasFailed())
        row.lastLines = lastLines(job);
    return row;
}

/// The row that was made of the job last time, when the job is as it was; else null.
const ZoJobRow* JobRows::find(const Job& job, std::size_t& place)
{
    // Jobs come and go at few places: mostly the next one is the one that was the next, and behind
    // the last one all are new.
    if (place == before.size() && index.isEmpty())
        return nullptr;
    if (place >= before.size() || !before[place].isSame(job)) {
        if (index.isEmpty())
            for (std::size_t i = 0; i < before.size(); ++i)
                index.insert(qMakePair(qint64(before[i].id), bytesOf(before[i].directory)), int(i));
        const auto found = index.constFind(qMakePair(qint64(job.id), bytesOf(job.directory)));
        if (found == index.constEnd())
            return nullptr;
        place = std::size_t(*found);
    }
    const Job& old = before[place];
    const bool same = old.state == job.state && old.startTime == job.startTime &&
                      old.endTime == job.endTime && clusterText(old) == clusterText(job);
    return same ? &rows[int(place++)] : (++place, nullptr);
}

void JobRows::forget(const Job& job)
{
    for (Job& known : before)
        if (known.isSame(job))
            known.state = 0;
}

ZoJobRows JobRows::make(const Queue& queue)
{
    ZoJobRows made;
    made.reserve(int(queue.jobs.size()));
    index.clear();
    std::size_t place = 0;
    const auto waits = [](const Job& job) { return job.isWaiting(); };
    const bool few = std::count_if(queue.jobs.begin(), queue.jobs.end(), waits) <= MOST_LOOKED_AT;
    for (const Job& job : queue.jobs) {
        const ZoJobRow* const known = find(job, place);
        made.append(known ? *known : makeRow(job));
        if (known && few && job.isWaiting())
            made.last().state = stateOf(job);  // somebody may have cancelled it meanwhile
    }
    const std::vector<std::string> names = jobNames(queue);
    for (int i = 0; i < made.size(); ++i)
        if (const QString name = text(names[std::size_t(i)]); made[i].name != name)
            made[i].name = name;
    before = queue.jobs;
    rows = made;
    return made;
}

JobDetails readJobDetails(const Job& job)
{
    const JobDirectory files(job);
    JobDetails details;
    details.key = { job.id, bytesOf(job.directory) };
    if (files.isOurs()) {
        const ScriptParts parts = ScriptParts::read(files.script());
        details.script = text(commandOf(job));
        details.workDirectory = bytesOf(parts.directory);
        for (const std::string& variable : parts.environment)
            details.environment += text(variable) + "\n";
    } else {
        details.script = text(job.command);
        details.workDirectory = details.key.directory;
    }
    details.log = bytesOf(files.logPath());
    return details;
}

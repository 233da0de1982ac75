#include "zojob/view/Table.h"

#include "jobs/Cluster.h"
#include "jobs/JobDirectory.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

enum { NAME, STATE, EXIT, TIME, START, END, DIRECTORY, LOG, COMMAND, TITLE, COLUMNS };

using Row = std::array<std::string, COLUMNS>;

static const Row HEADER = { { "JOB", "STATE", "EXIT", "TIME", "START", "END", "DIRECTORY", "LOG",
                              "COMMAND", "DESCRIPTION" } };
static const char* const STATE_COLORS[JOB_STATE_COUNT] = { "\033[33m", "\033[1;34m", "\033[32m",
                                                           "\033[31m", "\033[31m",   "\033[31m",
                                                           "\033[35m", "\033[35m" };
static const char* const PLAIN = "\033[0m";
static const std::size_t FIELD = 14;            // columns of a field's name
static const std::size_t LEAST_DIRECTORY = 12;  // columns of one in a job's name

void printField(const char* name, const std::string& value)
{
    std::string line = name;
    line.resize(FIELD, ' ');
    print(line + value + "\n");
}

bool isCapable()
{
    const char* const type = std::getenv("TERM");
    return type && *type && std::strcmp(type, "dumb") != 0 && ::isatty(STDOUT_FILENO);
}

bool wantsColor(const Options& options)
{
    const char* const refused = std::getenv("NO_COLOR");
    if (options.color != "auto")
        return options.color == "always";
    return !(refused && refused[0]) && isCapable();
}

TerminalSize terminalSize()
{
    struct winsize size;
    TerminalSize result;
    if (!::isatty(STDOUT_FILENO) || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return result;
    if (size.ws_col)
        result.columns = size.ws_col;
    if (size.ws_row)
        result.lines = size.ws_row;
    return result;
}

static std::string padded(const std::string& text, std::size_t columns)
{
    const std::size_t n = width(text);
    return n < columns ? text + std::string(columns - n, ' ') : text;
}

std::string coloredState(JobState state, bool color, std::size_t columns)
{
    const std::string name = padded(jobStateName(state), columns);
    return color ? STATE_COLORS[(int)state] + name + PLAIN : name;
}

/// A name as it is shown where a line has so many columns: of ID:DIRECTORY, both ends of the
/// directory. Our own names are short.
static std::string shownName(const std::string& name, std::size_t limit)
{
    const std::size_t directory = name.find(':') + 1;
    const std::size_t most = std::max(limit / 3, directory + LEAST_DIRECTORY);
    if (directory == 0)
        return name;
    return name.substr(0, directory) + cutMiddle(name.substr(directory), most - directory);
}

static Row makeRow(const Listed& one, bool wide, std::size_t limit)
{
    const Job& job = one.job;
    const int status = exitStatus(job);
    const JobDirectory directory(job);
    Row row;
    row[NAME] = shownName(printable(one.name), limit);
    row[STATE] = jobStateName(one.state);
    row[EXIT] = status < 0 ? "-" : std::to_string(status);
    row[TIME] = job.startTime ? duration(job.runTime()) : "-";
    row[TITLE] = printable(clusterText(job));
    if (wide) {
        const GivenTexts given = directory.given();
        row[START] = dateTime(job.startTime);
        row[END] = dateTime(job.endTime);
        row[DIRECTORY] = printable(given.directory);
        row[LOG] = printable(directory.logPath());
        row[COMMAND] = printable(given.command);
        row[TITLE] += given.label ? printable(*given.label) : "";
    } else {
        row[TITLE] += printable(titleOf(job));
    }
    return row;
}

static bool isShown(int column, bool wide)
{
    return wide || column <= TIME || column == TITLE;
}

static std::array<std::size_t, COLUMNS> columnWidths(const std::vector<Row>& rows)
{
    std::array<std::size_t, COLUMNS> widths{};
    for (const Row& row : rows)
        for (int c = 0; c < COLUMNS; ++c)
            widths[c] = std::max(widths[c], width(row[c]));
    return widths;
}

std::vector<std::string> tableLines(const std::vector<Listed>& jobs, const Options& options,
                                    std::size_t limit)
{
    std::vector<Row> rows;
    if (!options.noHeader && !jobs.empty())
        rows.push_back(HEADER);
    const std::size_t first = rows.size();
    for (const Listed& one : jobs)
        rows.push_back(makeRow(one, options.wide, limit));
    const auto widths = columnWidths(rows);
    const std::size_t start = widths[NAME] + 2 + widths[STATE];  // columns up to the state's end
    const bool color = wantsColor(options) && start <= limit;
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string rest;
        for (int c = EXIT; c < TITLE; ++c)
            if (isShown(c, options.wide))
                rest.append("  ").append(padded(rows[i][c], widths[c]));
        rest += "  " + rows[i][TITLE];
        rest.erase(rest.find_last_not_of(' ') + 1);
        std::string line = padded(rows[i][NAME], widths[NAME]) + "  ";
        if (color && i >= first)
            line +=
                coloredState(jobs[i - first].state, true, widths[STATE]) + cut(rest, limit - start);
        else
            line = cut(line.append(padded(rows[i][STATE], widths[STATE])).append(rest), limit);
        lines.push_back(line);
    }
    return lines;
}

#include "zojob/view/Table.h"

#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <array>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

enum { ID, STATE, EXIT, TIME, START, END, DIRECTORY, COMMAND, DESCRIPTION, COLUMNS };

using Row = std::array<std::string, COLUMNS>;

static const Row HEADER = { { "ID", "STATE", "EXIT", "TIME", "START", "END", "DIRECTORY", "COMMAND",
                              "DESCRIPTION" } };
static const char* const STATE_COLORS[] = { "\033[33m", "\033[1;34m", "\033[32m", "\033[31m" };
static const char* const PLAIN = "\033[0m";
static const std::size_t UNLIMITED = (std::size_t)-1;
static const std::size_t FIELD = 14;  // columns of a field's name

void printField(const char* name, const std::string& value)
{
    std::string line = name;
    line.resize(FIELD, ' ');
    print(line + value + "\n");
}

bool wantsColor(const Options& options)
{
    const char* const refused = std::getenv("NO_COLOR");
    if (options.color != "auto")
        return options.color == "always";
    return !(refused && refused[0]) && ::isatty(STDOUT_FILENO);
}

/// Columns of the terminal; no limit for a file or a pipe, where everything is wanted.
static std::size_t terminalWidth()
{
    struct winsize size;
    if (!::isatty(STDOUT_FILENO) || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return UNLIMITED;
    return size.ws_col ? size.ws_col : UNLIMITED;
}

static std::string padded(const std::string& text, std::size_t columns)
{
    const std::size_t n = width(text);
    return n < columns ? text + std::string(columns - n, ' ') : text;
}

std::string coloredState(const Job& job, bool color, std::size_t columns)
{
    std::string name = padded(stateName(job), columns);
    for (int i = 0; color && i < JOB_STATES; ++i)
        if (STATES[i] == job.state)
            return STATE_COLORS[i] + name + PLAIN;
    return name;
}

/// What the cluster says of a job that has not ended well, as "[4711 PENDING (Resources)] ".
static std::string clusterText(const Job& job)
{
    if (job.cluster.id.empty() || job.cluster.status == 0)
        return "";
    return printable("[" + job.cluster.id + " " + job.cluster.state + "] ");
}

static Row makeRow(const Job& job, const std::string& name, bool wide)
{
    const int status = exitStatus(job);
    Row row;
    row[ID] = printable(name);
    row[STATE] = stateName(job);
    row[EXIT] = status < 0 ? "-" : std::to_string(status);
    row[TIME] = job.startTime ? duration(job.runTime()) : "-";
    row[DESCRIPTION] = clusterText(job) + printable(job.description);
    if (wide) {
        row[START] = dateTime(job.startTime);
        row[END] = dateTime(job.endTime);
        row[DIRECTORY] = printable(job.directory);
        row[COMMAND] = printable(job.command);
    }
    return row;
}

static bool isShown(int column, bool wide)
{
    return wide || column <= TIME || column == DESCRIPTION;
}

static std::array<std::size_t, COLUMNS> columnWidths(const std::vector<Row>& rows)
{
    std::array<std::size_t, COLUMNS> widths{};
    for (const Row& row : rows)
        for (int c = 0; c < COLUMNS; ++c)
            widths[c] = std::max(widths[c], width(row[c]));
    return widths;
}

void writeTable(const std::vector<Job>& jobs, const std::vector<std::string>& names,
                const Options& options)
{
    std::vector<Row> rows;
    if (!options.noHeader)
        rows.push_back(HEADER);
    const std::size_t first = rows.size();
    for (std::size_t i = 0; i < jobs.size(); ++i)
        rows.push_back(makeRow(jobs[i], names[i], options.wide));
    const auto widths = columnWidths(rows);
    const std::size_t limit = options.wide ? UNLIMITED : terminalWidth();
    const bool color = wantsColor(options);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string line;
        for (int c = 0; c < DESCRIPTION; ++c)
            if (isShown(c, options.wide))
                line.append(padded(rows[i][c], widths[c])).append("  ");
        line += rows[i][DESCRIPTION];
        line = cut(line, limit);
        const std::size_t state = widths[ID] + 2;  // where the state stands in the line
        if (color && i >= first && line.size() >= state + widths[STATE])
            line.replace(state, widths[STATE], coloredState(jobs[i - first], true, widths[STATE]));
        print(line.substr(0, line.find_last_not_of(' ') + 1) + "\n");
    }
}

std::string countText(const Queue& queue)
{
    const auto counts = queue.counts();
    std::string text;
    for (int i = 0; i < JOB_STATES; ++i)
        text += (i ? ", " : "") + std::to_string(counts[i]) + " " + STATE_NAMES[i];
    return text;
}

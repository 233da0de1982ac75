#ifndef TABLE_H
#define TABLE_H

#include "jobs/Server.h"
#include "zojob/Options.h"

#include <array>
#include <string>
#include <vector>

/// Whether standard output is to be coloured: as asked for, else on a terminal unless NO_COLOR is
/// set.
bool wantsColor(const Options& options);

/// The state's name, coloured, and padded to `columns`.
std::string coloredState(const ZoJob& job, bool color, std::size_t columns);

/// Writes the jobs as lines of columns to standard output. On a terminal they are cut
/// to its width, unless all columns were asked for.
void writeTable(const Jobs& jobs, const Options& options);

/// Writes one line with a name and a value to standard output.
void printField(const char* name, const std::string& value);

/// How many jobs are in each of the STATES.
std::array<int, 4> countStates(const Jobs& jobs);

/// The same as "2 waiting, 1 running, 0 done, 0 killed".
std::string countText(const Jobs& jobs);

/// Each writes one JSON document to standard output. Bytes that are no UTF-8 become U+FFFD; times
/// are seconds since the epoch, null for what has not happened.
void writeJsonList(const Jobs& jobs, const std::vector<std::string>& names);

/// One job; `more` adds the script and the path of the output.
void writeJsonJob(const ZoJob& job, const std::string& name, bool more);

/// `server` is "running", "none" or "refused".
void writeJsonStatus(const char* server, const std::string& host, const Jobs& jobs);

#endif

#ifndef TABLE_H
#define TABLE_H

#include "jobs/Queue.h"
#include "zojob/Options.h"

#include <string>
#include <vector>

/// Whether standard output is to be coloured: as asked for, else on a terminal unless NO_COLOR is
/// set.
bool wantsColor(const Options& options);

/// The state's name, coloured, and padded to `columns`.
std::string coloredState(const Job& job, bool color, std::size_t columns);

/// Writes the jobs, with their names, as lines of columns to standard output. On a terminal they
/// are cut to its width, unless all columns were asked for.
void writeTable(const std::vector<Job>& jobs, const std::vector<std::string>& names,
                const Options& options);

/// Writes one line with a name and a value to standard output.
void printField(const char* name, const std::string& value);

/// How many jobs are in which state, as "2 waiting, 1 running, 0 done, 0 killed".
std::string countText(const Queue& queue);

#endif

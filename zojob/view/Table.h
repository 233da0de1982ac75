#ifndef TABLE_H
#define TABLE_H

#include "zojob/Options.h"
#include "zojob/view/Listed.h"

#include <cstddef>
#include <string>
#include <vector>

/// The size of the terminal that standard output is; no limits for a file or a pipe, where
/// everything is wanted.
struct TerminalSize {
    std::size_t columns = (std::size_t)-1;
    std::size_t lines = (std::size_t)-1;
};
TerminalSize terminalSize();

/// Whether standard output is to be coloured: as asked for, else on a terminal unless NO_COLOR is
/// set.
bool wantsColor(const Options& options);

/// The state's name, coloured, and padded to `columns`.
std::string coloredState(JobState state, bool color, std::size_t columns);

/// The jobs as lines of columns, with a heading unless it is not wanted. On a terminal they are cut
/// to its width, unless all columns were asked for.
std::vector<std::string> tableLines(const std::vector<Listed>& jobs, const Options& options);

/// Writes one line with a name and a value to standard output.
void printField(const char* name, const std::string& value);

#endif

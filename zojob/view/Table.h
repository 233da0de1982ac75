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

/// Whether standard output is a terminal that obeys more than line ends.
bool isCapable();

/// Whether standard output is to be coloured: as asked for, else on such a terminal unless
/// NO_COLOR is set.
bool wantsColor(const Options& options);

/// The state's name, coloured, and padded to `columns`.
std::string coloredState(JobState state, bool color, std::size_t columns);

/// The jobs as lines, with a heading unless it is not wanted or there are none. Lines are cut to so
/// many columns of a terminal; long names of other applications' jobs leave room for what stands
/// behind them.
std::vector<std::string> tableLines(const std::vector<Listed>& jobs, const Options& options,
                                    std::size_t limit);

/// Writes one line with a name and a value to standard output.
void printField(const char* name, const std::string& value);

#endif

#ifndef JOBSCRIPT_H
#define JOBSCRIPT_H

#include <string>
#include <vector>

/// How every script of zojob begins; names the directory it was made for, so that a copy of it
/// elsewhere is not taken for zojob's.
std::string scriptStart(const std::string& directory);

/// The text of a job's script, for `sh job` in `directory`.
std::string makeScript(const std::string& directory, const std::string& workDirectory,
                       const std::string& body);

/// The shell text of a command as it was given: one word is shell text itself, several are exactly
/// these arguments.
std::string commandText(const std::vector<std::string>& words);

/// A text that a request can carry as a job's description: one line, without double quotes, not too
/// long to be listed.
std::string describe(const std::string& text);

/// The same for a command.
std::string describe(const std::vector<std::string>& words);

#endif

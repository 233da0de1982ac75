#ifndef JOBSCRIPT_H
#define JOBSCRIPT_H

#include <string>
#include <vector>

class Submission;

// The text of a job's script, and the texts that stand for a command.

/// How every script begins; names the directory it was made for, so that a copy of it elsewhere is
/// not taken for a job's.
std::string scriptStart(const std::string& directory);

/// The script of a job, for `sh job` in `directory`: the submission's umask, environment and
/// directory, then `body`.
std::string scriptText(const std::string& directory, const Submission& submission,
                       const std::string& body);

/// The shell text of a command as it was given: one word is shell text itself, several are exactly
/// these arguments.
std::string commandText(const std::vector<std::string>& words);

/// A text that a request can carry as a job's description: one line, without double quotes, not too
/// long to be listed.
std::string describe(const std::string& text);

/// The same for a command.
std::string describe(const std::vector<std::string>& words);

/// The first line of a script that does something; "script" when none does.
std::string firstLine(const std::string& script);

#endif

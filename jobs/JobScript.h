#ifndef JOBSCRIPT_H
#define JOBSCRIPT_H

#include <optional>
#include <string>
#include <vector>

class Submission;

// The text of a job's script, and the texts that stand for a command.

/// What a job's script says of itself at its top: the texts of the submission, exactly as they were
/// given.
struct GivenTexts {
    std::string command;    ///< as commandLine() makes it, or the script's first line
    std::string directory;  ///< where the command runs
    std::optional<std::string> label;
};

/// How every script begins; names the directory it was made for, so that a copy of it elsewhere is
/// not taken for a job's.
std::string scriptStart(const std::string& directory);

/// The script of a job, for `sh job` in `directory`: all that the submission says around `command`,
/// lines of shell that replace the shell or end it.
std::string scriptText(const std::string& directory, const Submission& submission,
                       const std::string& command);

/// A command for it: these words of shell, run with the job's environment, niceness and time.
std::string plainCommand(const std::string& words);

/// A command for it: a text of shell that needs the environment's variables itself.
std::string exportedCommand(const std::vector<std::string>& environment, const std::string& text);

/// The script of a job in another directory, without its conditions on other jobs.
std::string copiedScript(const std::string& script, const std::string& from, const std::string& to);

/// Reads the texts back; empty ones where the script says nothing.
GivenTexts givenTexts(const std::string& script);

/// A command as a person would type it: one word as it is, several quoted where they have to be.
std::string commandLine(const std::vector<std::string>& words);

/// The shell text of a command as it was given: one word is shell text itself, several are exactly
/// these arguments. Functions of bash in the environment reach a program that is named so, although
/// the shell between does not know them.
std::string commandText(const std::vector<std::string>& words,
                        const std::vector<std::string>& environment = {});

/// Whether a shell would run a file for this word: one through PATH, or any path.
bool isProgram(const std::string& word, const std::vector<std::string>& environment);

/// A text that a request can carry as a job's description: one line, without double quotes, not too
/// long to be listed.
std::string describe(const std::string& text);

/// The first line of a script that does something; "script" when none does.
std::string firstLine(const std::string& script);

#endif

#include "jobs/JobScript.h"

#include "jobs/Submission.h"
#include "jobs/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

static const std::size_t MAX_DESCRIPTION = 400;  // characters; more helps nobody in a list

// Not handed on: what the shell keeps itself, and what some shell makes read-only or reads as a
// number, so that setting it would end the script.
static const char* const SHELLS_OWN[] = {
    "PWD",           "OLDPWD",    "SHLVL",     "_",          "IFS",       "PPID",
    "UID",           "EUID",      "GROUPS",    "BASHOPTS",   "SHELLOPTS", "OPTIND",
    "LINENO",        "FUNCNAME",  "RANDOM",    "SECONDS",    "DIRSTACK",  "BASHPID",
    "BASH_VERSINFO", "BASH_ARGC", "BASH_ARGV", "PIPESTATUS",
};

/// The length of the name when sh takes the entry as an assignment of a variable that is the job's
/// to have; 0 otherwise.
static std::size_t exportedName(const char* entry)
{
    std::size_t n = 0;
    while (std::isalnum((unsigned char)entry[n]) || entry[n] == '_')
        ++n;
    if (n == 0 || entry[n] != '=' || std::isdigit((unsigned char)entry[0]))
        return 0;
    for (const char* const own : SHELLS_OWN)
        if (std::strlen(own) == n && std::strncmp(own, entry, n) == 0)
            return 0;
    return n;
}

static std::string exports(const std::vector<std::string>& environment)
{
    std::string text;
    for (const std::string& entry : environment) {
        const std::size_t n = exportedName(entry.c_str());
        if (n > 0)
            text += "export " + entry.substr(0, n + 1) + shellQuoted(entry.substr(n + 1)) + "\n";
    }
    return text;
}

static const char* const COMMAND = "# command: ";
static const char* const DIRECTORY = "# directory: ";
static const char* const LABEL = "# label: ";
static const char* const END = "# end";

/// A line of comment from which unescaped() reads the text back.
static std::string commentLine(const char* title, const std::string& text)
{
    std::string line = title;
    for (const char c : text)
        line += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    return line + "\n";
}

static std::string unescaped(const std::string& line)
{
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i)
        if (line[i] != '\\' || i + 1 == line.size())
            text += line[i];
        else
            text += line[++i] == 'n' ? '\n' : line[i];
    return text;
}

GivenTexts givenTexts(const std::string& script)
{
    GivenTexts texts;
    for (std::size_t start = 0, end; start < script.size(); start = end + 1) {
        end = std::min(script.find('\n', start), script.size());
        const std::string line = script.substr(start, end - start);
        const auto value = [&line](const char* title) { return line.substr(std::strlen(title)); };
        if (line[0] != '#' || line == END)
            break;
        if (line.compare(0, std::strlen(COMMAND), COMMAND) == 0)
            texts.command = unescaped(value(COMMAND));
        else if (line.compare(0, std::strlen(DIRECTORY), DIRECTORY) == 0)
            texts.directory = unescaped(value(DIRECTORY));
        else if (line.compare(0, std::strlen(LABEL), LABEL) == 0)
            texts.label = unescaped(value(LABEL));
    }
    return texts;
}

/// The submission's texts, as lines of comment.
static std::string givenLines(const Submission& submission)
{
    return commentLine(COMMAND, submission.command) + commentLine(DIRECTORY, submission.directory) +
           (submission.label ? commentLine(LABEL, *submission.label) : "") + END + "\n";
}

std::string scriptStart(const std::string& directory)
{
    return "#!/bin/sh\n# made by zojob for " + directory + "\n";
}

std::string scriptText(const std::string& directory, const Submission& submission,
                       const std::string& body)
{
    char mask[32];
    std::snprintf(mask, sizeof mask, "umask %04o\n", submission.umask);
    const std::string sorry =
        "zojob: cannot enter " + submission.directory + ": the command was not run";
    // The server's own environment is that of whoever happened to start it: the job begins without.
    // The file "started" tells when to the fraction of a second, unlike the queue.
    return scriptStart(directory) + givenLines(submission) +
           "[ \"$1\" = - ] || { true >started; } 2>/dev/null\n"
           "[ \"$1\" = - ] || exec env -i sh job -\nshift\n" +
           mask + "cd " + shellQuoted(submission.directory) + " || { printf '%s\\n' " +
           shellQuoted(sorry) + " >&2; exit 125; }\n" + exports(submission.environment) + "\n" +
           body + "\n";
}

std::string commandLine(const std::vector<std::string>& words)
{
    if (words.size() == 1)
        return words[0];
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + shellWord(word);
    return text;
}

std::string commandText(const std::vector<std::string>& words)
{
    if (words.size() == 1)
        return words[0];
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + shellQuoted(word);
    return text;
}

std::string describe(const std::string& text)
{
    std::string line = cut(printable(text), MAX_DESCRIPTION);
    for (char& c : line)
        if (c == '"')
            c = '\'';
    return line;
}

std::string firstLine(const std::string& script)
{
    std::size_t start = 0;
    while (start < script.size()) {
        const std::size_t end = std::min(script.find('\n', start), script.size());
        const std::size_t word = script.find_first_not_of(" \t", start);
        if (word < end && script[word] != '#')
            return script.substr(word, end - word);
        start = end + 1;
    }
    return "script";
}

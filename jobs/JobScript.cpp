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
    return scriptStart(directory) + "[ \"$1\" = - ] || exec env -i sh job -\nshift\n" + mask +
           "cd " + shellQuoted(submission.directory) + " || { printf '%s\\n' " +
           shellQuoted(sorry) + " >&2; exit 125; }\n" + exports(submission.environment) + "\n" +
           body + "\n";
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

std::string describe(const std::vector<std::string>& words)
{
    if (words.size() == 1)
        return describe(words[0]);
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + shellWord(word);
    return describe(text);
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

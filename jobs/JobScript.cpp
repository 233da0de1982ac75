#include "jobs/JobScript.h"

#include "jobs/ScriptShell.h"
#include "jobs/StateDirectory.h"
#include "jobs/Submission.h"
#include "jobs/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <unistd.h>

static const std::string MADE = "# made by zojob for ";
static const char* const LIMITS = "\nzj_limits() {\n    :\n";
static const char* const CONDITIONS = "\nzj_conditions() {\n    :\n";
static const char* const CONDITION = "    zj_after ";
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
    return "#!/bin/sh\n" + (MADE + directory) + "\n";
}

/// The assignments that the library reads.
static std::string variables(const std::string& directory, const Submission& submission)
{
    char mask[32];
    std::snprintf(mask, sizeof mask, "%04o", submission.umask);
    // A line of its own: see copiedScript().
    std::string text = "zj_d=" + shellQuoted(directory) + " zj_n=" + numberOf(directory) + "\n";
    text += "zj_dir=" + shellQuoted(submission.directory) + " zj_mask=" + mask;
    text += " zj_time=" + submission.timeout + " zj_retry=" + std::to_string(submission.retries);
    text += "\nzj_name=" + shellQuoted(submission.description);
    text += " zj_label=" + shellQuoted(submission.label.value_or(""));
    text += "\nzj_then=" + shellQuoted(submission.then) +
            " zj_done=" + shellQuoted(submission.done) + "\n";
    // No job can be nicer to itself than the server is to all.
    return text + "zj_nice=$((" + std::to_string(submission.niceness) +
           " - $(nice)))\n[ \"$zj_nice\" -gt 0 ] || zj_nice=''\n";
}

static std::string limitLines(const Submission& submission)
{
    std::string text = LIMITS + 1;
    for (const auto& [letter, value] : submission.limits)
        text += std::string("    zj_limit ") + letter + " " + value + "\n";
    return text + "}\n";
}

static std::string conditionLines(const Submission& submission)
{
    std::string text = CONDITIONS + 1;
    for (const Submission::Condition& condition : submission.after)
        text += CONDITION + condition.number + " " + shellQuoted(condition.directory) +
                (condition.well ? " ok\n" : " any\n");
    return text + "}\n";
}

/// The entries of the environment, as words of shell.
static std::string entries(const std::vector<std::string>& environment)
{
    std::string text;
    for (const std::string& entry : environment) {
        const std::size_t n = entry.find('=');
        const std::string name = entry.substr(0, n);
        const bool isShells = name == "PWD" || name == "OLDPWD" || name == "SHLVL" || name == "_";
        if (n != std::string::npos && n > 0 && !isShells)
            text += " " + shellQuoted(entry);
    }
    return text;
}

std::string scriptText(const std::string& directory, const Submission& submission,
                       const std::string& command)
{
    // The server's own environment is that of whoever happened to start it: the job begins without.
    // The file "started" tells when to the fraction of a second, unlike the queue.
    return scriptStart(directory) + givenLines(submission) +
           "[ \"$1\" = - ] || { true >started; } 2>/dev/null\n"
           "[ \"$1\" = - ] || exec env -i sh job -\n" +
           variables(directory, submission) + "set --" + entries(submission.environment) + "\n" +
           SCRIPT_LIBRARY + limitLines(submission) + conditionLines(submission) +
           "zj_command() {\n" + command + "\n}\n" + SCRIPT_MAIN;
}

std::string plainCommand(const std::string& words)
{
    return "    zj_exec $# \"$@\" PWD=\"$PWD\" ZOJOB_ID=\"$zj_n\" \\\n"
           "        ${zj_nice:+\"$zj_nice_path\" -n \"$zj_nice\"} \\\n"
           "        ${zj_time:+\"$zj_timeout_path\" -k 10 \"$zj_time\"} " +
           words;
}

std::string exportedCommand(const std::vector<std::string>& environment, const std::string& text)
{
    // Whoever kills has marked that before the signal, which may come before this has begun.
    return "[ ! -e \"$zj_d/kill\" ] || exit 143\n" + exports(environment) +
           "export ZOJOB_ID=\"$zj_n\"\nset --\n" + text;
}

static bool startsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// Whether this is one of our own lines that name the job's directory.
static bool namesDirectory(const std::string& line)
{
    const std::string end = "<&3 3<&- &";  // of the line that starts the command on a cluster
    return startsWith(line, "zojob_d=") || startsWith(line, ". '/") ||
           startsWith(line, "#SBATCH --output=") ||
           (line.size() > end.size() && line.substr(line.size() - end.size()) == end);
}

/// The lines with one directory in place of the other where they name it.
static std::string withDirectory(const std::string& text, const std::string& from,
                                 const std::string& to)
{
    std::string copy;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (namesDirectory(line))
            for (std::size_t at = 0; (at = line.find(from, at)) != std::string::npos;
                 at += to.size())
                line.replace(at, from.size(), to);
        copy += line + "\n";
    }
    return copy;
}

static void replaceLine(std::string& text, std::size_t start, const std::string& line)
{
    text.replace(start, text.find('\n', start) - start, line);
}

std::string copiedScript(const std::string& script, const std::string& from, const std::string& to)
{
    std::string text = script;
    const std::size_t made = text.find("\n" + MADE + from + "\n");
    if (made == std::string::npos)
        return withDirectory(text, from, to);  // of a cluster
    // By their places: a line of the environment may look like one of ours.
    replaceLine(text, made + 1, MADE + to);
    replaceLine(text, text.find("\nzj_d=") + 1,
                "zj_d=" + shellQuoted(to) + " zj_n=" + numberOf(to));
    const std::size_t conditions = text.find(CONDITIONS, text.find(LIMITS));
    const std::size_t rest = std::min(conditions, text.size());
    if (rest < text.size())
        for (const std::size_t first = rest + std::strlen(CONDITIONS);
             text.compare(first, std::strlen(CONDITION), CONDITION) == 0;)
            text.erase(first, text.find('\n', first) + 1 - first);
    return text.substr(0, rest) + withDirectory(text.substr(rest), from, to);
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

bool isProgram(const std::string& word, const std::vector<std::string>& environment)
{
    if (word.find('/') != std::string::npos)
        return word.find('=') == std::string::npos;
    for (const std::string& entry : environment) {
        std::istringstream path(entry.compare(0, 5, "PATH=") == 0 ? entry.substr(5) : "");
        for (std::string place; std::getline(path, place, ':');)
            if (::access(place.append("/").append(word).c_str(), X_OK) == 0)
                return word.find('=') == std::string::npos;
    }
    return false;
}

std::string commandText(const std::vector<std::string>& words,
                        const std::vector<std::string>& environment)
{
    if (words.size() == 1)
        return words[0];
    std::string text, functions;
    for (const std::string& entry : environment)
        if (entry.compare(0, 10, "BASH_FUNC_") == 0)
            functions += " " + shellQuoted(entry);
    if (!functions.empty() && isProgram(words[0], environment))
        text = "exec env" + functions;
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

#include "jobs/Slurm.h"

#include "jobs/JobError.h"
#include "jobs/SlurmShell.h"
#include "jobs/Text.h"

#include <sstream>
#include <unistd.h>

// Options with which sbatch does not submit our script, or does not answer with the job's number.
static const char* const REFUSED[] = { "-W", "--wait", "--wrap", "--test-only", "--parsable" };

/// Whether a word is this option, alone or with its value.
static bool isOption(const std::string& word, const std::string& option)
{
    return word.compare(0, option.size(), option) == 0 &&
           (option[1] != '-' || word.size() == option.size() || word[option.size()] == '=');
}

static bool hasOption(const std::vector<std::string>& words, const std::string& option)
{
    for (const std::string& word : words)
        if (isOption(word, option))
            return true;
    return false;
}

/// Splits the text at `i` into a word; false at the end.
static bool nextWord(const std::string& line, std::size_t& i, std::string& word)
{
    char quote = 0;
    word.clear();
    i = line.find_first_not_of(" \t\n", i);
    if (i == std::string::npos)
        return false;
    for (; i < line.size(); ++i) {
        const char c = line[i];
        if (quote ? c == quote : c == '"' || c == '\'')
            quote = quote ? 0 : c;
        else if (c == '\\' && quote != '\'' && i + 1 < line.size())
            word += line[++i];
        else if (!quote && (c == ' ' || c == '\t' || c == '\n'))
            return true;
        else
            word += c;
    }
    if (quote)
        throw JobError(JobError::INVALID, "the options for sbatch end within quotes: " + line);
    return true;
}

std::vector<std::string> Slurm::splitOptions(const std::string& line)
{
    std::vector<std::string> words;
    std::string word;
    for (std::size_t i = 0; nextWord(line, i, word);)
        words.push_back(word);
    for (const char* const option : REFUSED)
        if (hasOption(words, option))
            throw JobError(JobError::INVALID, std::string("sbatch is not to be called with ") +
                                                  option + " here: the job itself waits");
    return words;
}

std::string Slurm::libraryText()
{
    return SLURM_LIBRARY;
}

static std::string assignment(const std::string& directory)
{
    return "zojob_d=" + shellQuoted(directory) + " zojob_c=" + shellQuoted(directory + "/cluster") +
           "\n";
}

std::string Slurm::standText(const std::string& directory, const std::vector<std::string>& options,
                             bool detach)
{
    std::string text = assignment(directory) + ". " + shellQuoted(directory + "/cluster/library") +
                       "\nzojob_main " + (detach ? "detach" : "''");
    for (const std::string& option : options)
        text += " " + shellQuoted(option);
    return text;
}

/// A line for sbatch at the head of a script, with a value that may hold anything but a line end.
static std::string directive(const std::string& option, const std::string& value)
{
    std::string line = "#SBATCH --" + option + "=\"";
    for (const char c : value) {
        if (c == '"' || c == '\\')
            line += '\\';
        line += c;
    }
    return line + "\"\n";
}

/// A path in which sbatch is to replace nothing. With a backslash anywhere it never does.
static std::string plainPath(const std::string& path)
{
    const char special = path.find('\\') == std::string::npos ? '%' : '\\';
    std::string result;
    for (const char c : path)
        result += c == special ? std::string(2, c) : std::string(1, c);
    return result;
}

/// The lines at the head of a script that sbatch reads.
static std::string directivesOf(const std::string& script)
{
    std::istringstream lines(script);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 8, "#SBATCH ") == 0 || line.compare(0, 8, "#SBATCH\t") == 0)
            result += line + "\n";
        else if (line.find_first_not_of(" \t\r") != std::string::npos && line[0] != '#')
            break;
    }
    return result;
}

/// Whether the user has named a directory to sbatch itself.
static bool hasDirectory(const std::string& directives, const std::vector<std::string>& options)
{
    std::istringstream words(directives);
    std::vector<std::string> all = options;
    for (std::string word; words >> word;)
        all.push_back(word);
    return hasOption(all, "-D") || hasOption(all, "--chdir") || hasOption(all, "--workdir");
}

/// Whether the batch script alone is to get a SIGTERM before the time limit.
static bool isWarnedByTerm(const std::string& directives, const std::vector<std::string>& options)
{
    std::string all = directives;
    for (const std::string& option : options)
        all += " " + option;
    for (const char* const signal : { "B:TERM", "B:SIGTERM", "B:15" })
        if (all.find(signal) != std::string::npos)
            return true;
    return false;
}

std::string Slurm::batchText(const std::string& directory, const std::string& name,
                             const std::string& workDirectory, const std::string& command,
                             const std::string& script, const std::vector<std::string>& options)
{
    const std::string directives = directivesOf(script);
    std::string text = "#!/bin/sh\n" + directive("job-name", name) +
                       directive("output", plainPath(directory + "/log")) +
                       directive("open-mode", "append") + directive("export", "ALL") + directives +
                       assignment(directory) + SLURM_BATCH_START;
    if (isWarnedByTerm(directives, options))
        text += "trap 'zojob_s=1; kill -s TERM $zojob_p' TERM\n";
    // Slurm itself would go on in another directory.
    if (!hasDirectory(directives, options))
        text += "cd " + shellQuoted(workDirectory) + " || zojob_nowhere\n";
    return text + command + " <&3 3<&- &\n" + SLURM_BATCH_END;
}

std::string Slurm::tellText()
{
    return libraryText() + "zojob_look \"$@\"\n";
}

std::string Slurm::cancelText()
{
    return libraryText() + "zojob_kill \"$@\"\n";
}

/// The value of a variable; null when it is not there.
static const char* valueOf(const std::vector<std::string>& environment, const std::string& name)
{
    for (const std::string& entry : environment)
        if (entry.compare(0, name.size(), name) == 0 && entry[name.size()] == '=')
            return entry.c_str() + name.size() + 1;
    return nullptr;
}

void Slurm::leaveAllocation(std::vector<std::string>& environment)
{
    if (!valueOf(environment, "SLURM_JOB_ID"))
        return;
    std::vector<std::string> kept;
    for (const std::string& entry : environment)
        if (entry.compare(0, 5, "SLURM") != 0 || entry.compare(0, 11, "SLURM_CONF=") == 0)
            kept.push_back(entry);
    environment = kept;
}

bool Slurm::isHere(const std::vector<std::string>& environment)
{
    const char* const path = valueOf(environment, "PATH");
    std::istringstream directories(path ? path : "/usr/bin:/bin");
    for (std::string directory; std::getline(directories, directory, ':');)
        if (::access((directory + "/sbatch").c_str(), X_OK) == 0)
            return true;
    return false;
}

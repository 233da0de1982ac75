#include "zojob/Usage.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

const char* const NO_COMMAND = "what is to run? Give a command, or - for a script from standard "
                               "input";
static const std::size_t MOST_COLUMNS = 79;  // of a line of help

static std::string numberText(double number)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.10g", number);
    return text;
}

static CLI::Validator number(double least, double most, bool whole)
{
    const auto check = [=](const std::string& text) {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        const bool isNumber = !text.empty() && *end == '\0' && !std::isnan(value);
        if (isNumber && value >= least && value <= most && (!whole || value == std::floor(value)))
            return std::string();
        return "'" + text + "' is no " + (whole ? "whole " : "") + "number from " +
               numberText(least) + " to " + numberText(most);
    };
    return CLI::Validator(check, "");
}

CLI::Validator numberFrom(double least, double most)
{
    return number(least, most, false);
}

CLI::Validator wholeNumberFrom(double least, double most)
{
    return number(least, most, true);
}

CLI::Validator oneOf(const std::vector<std::string>& words)
{
    const auto check = [words](const std::string& text) {
        if (std::count(words.begin(), words.end(), text))
            return std::string();
        std::string list;
        for (const std::string& word : words)
            list += (list.empty() ? "" : word == words.back() ? " or " : ", ") + word;
        return "'" + text + "' is not " + list;
    };
    return CLI::Validator(check, "");
}

/// The command that was read before the parser stopped; empty when there was none.
static std::string commandOf(const CLI::App& app)
{
    const auto commands = app.get_subcommands();
    return commands.empty() ? "" : commands[0]->get_name();
}

static std::string unexpected(const CLI::App& app)
{
    const std::string word = app.remaining(true).at(0), command = commandOf(app);
    if (command.empty())
        return (word[0] == '-' ? "no option is named '" : "no command is named '") + word + "'";
    return command + (word[0] == '-' ? " has no option '" : " takes no more words: '") + word + "'";
}

static std::string missing(const std::string& command)
{
    if (command == "submit")
        return NO_COMMAND;
    return "which job? Name one";
}

Failure wrongUsage(const CLI::App& app, const CLI::ParseError& error)
{
    const std::string text = error.what(), command = commandOf(app);
    const std::string name = text.substr(0, text.find_first_of(": "));
    const bool isOption = name[0] == '-';
    std::string sentence = text;
    if (dynamic_cast<const CLI::ExtrasError*>(&error))
        sentence = unexpected(app);
    else if (dynamic_cast<const CLI::RequiredError*>(&error))
        sentence = missing(command);
    else if (dynamic_cast<const CLI::ArgumentMismatch*>(&error))
        sentence = isOption ? name + " needs a value" : command + " takes one name only";
    else if (dynamic_cast<const CLI::ConversionError*>(&error))
        sentence = "an option was given a value that it does not take";
    return Failure{ WRONG_USAGE, sentence + helpHint(command) };
}

std::string helpHint(const std::string& command)
{
    return "; see 'zojob " + command + (command.empty() ? "" : " ") + "--help'";
}

std::string wrapped(const std::string& help)
{
    std::string result;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() && result.size() > 1 && result.compare(result.size() - 2, 2, "\n\n") == 0)
            continue;
        // What an option does goes on below its beginning.
        const std::size_t gap = line[0] == ' ' ? line.find("  ", 2) : std::string::npos;
        const std::size_t column = gap < line.size() ? line.find_first_not_of(' ', gap) : 0;
        while (line.size() > MOST_COLUMNS) {
            const std::size_t blank = line.rfind(' ', MOST_COLUMNS);
            if (blank == std::string::npos || blank <= column)
                break;
            result += line.substr(0, blank) + "\n";
            line = std::string(column, ' ') + line.substr(blank + 1);
        }
        result += line + "\n";
    }
    return result;
}

std::string wordsWarning(const std::vector<std::string>& words, const std::string& directory)
{
    const std::string& first = words[0];
    const std::string path = (first[0] == '/' ? "" : directory + "/") + first;
    if (words.size() < 2 || first.find_first_of(" \t") == std::string::npos ||
        ::access(path.c_str(), X_OK) == 0)
        return "";
    return "'" + first +
           "' is taken for the name of one program, since more words follow; a line of shell is "
           "one word, with options in front of it";
}

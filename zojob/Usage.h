#ifndef USAGE_H
#define USAGE_H

#include "zojob/Report.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

// What is wrong with a command line, in sentences of our own: those of the parser speak of
// positionals, ranges and sets.

/// What is wrong with a submission of nothing.
extern const char* const NO_COMMAND;

/// Accepts numbers of these limits.
CLI::Validator numberFrom(double least, double most);

/// The same without a fraction.
CLI::Validator wholeNumberFrom(double least, double most);

/// Accepts one of these words.
CLI::Validator oneOf(const std::vector<std::string>& words);

/// The failure that the parser's error stands for.
Failure wrongUsage(const CLI::App& app, const CLI::ParseError& error);

/// "; see 'zojob submit --help'" for the command, "; see 'zojob --help'" for none.
std::string helpHint(const std::string& command);

/// A help text in lines that fit a terminal.
std::string wrapped(const std::string& help);

/// What is unusual about the words of a command to submit; empty for nothing.
std::string wordsWarning(const std::vector<std::string>& words, const std::string& directory);

#endif

#ifndef REPORT_H
#define REPORT_H

#include "jobs/JobError.h"

#include <string>

/// How zojob ends; part of what scripts rely on. `wait` and `submit --wait` end with a job's own
/// status instead when there is nothing to report.
enum {
    DONE_WELL = 0,
    REFUSED = 1,      ///< the server refused, nothing matched, or a file could not be used
    WRONG_USAGE = 2,  ///< the command line makes no sense
    NO_SERVER = 3,    ///< no server could be reached or started
    TIMED_OUT = 124,  ///< `wait --timeout`
    INTERRUPTED = 130
};

/// Thrown to end the command: the exit code, and one line that says what happened and what to do.
struct Failure {
    int code;
    std::string text;
    long long otherUser = -1;  ///< whose server was met, when that is the failure and it is known

    Failure(int exitCode, const std::string& line) : code(exitCode), text(line) {}

    /// What jobs/ reports, with what zojob offers against it.
    Failure(const JobError& error);
};

/// Writes "zojob: TEXT" and a line end to standard error, after what standard output holds.
void note(const std::string& text);

/// Writes text to standard output. The first failure is kept for the end of the program.
void print(const std::string& text);

/// Whether print() has been given anything.
bool hasPrinted();

/// Sends on what print() has collected; false when anything could not be written so far.
bool flushPrinted();

/// The errno of the first failure to write; 0 when there was none.
int printError();

#endif

#ifndef OPTIONS_H
#define OPTIONS_H

#include <string>
#include <vector>

/// What the command line says. The defaults are those of a command without options.
struct Options {
    std::string command = "list";  ///< name of the command, never its alias; empty for help
    std::string text;              ///< what help or version print

    std::string host;            ///< empty: this machine
    std::string root;            ///< installation directory
    std::string color = "auto";  ///< "auto", "never" or "always"
    bool json = false;
    std::vector<std::string> jobs;  ///< names of jobs as they were given

    // submit
    std::vector<std::string> words;  ///< the command, exactly as it was given
    std::string label;
    std::string directory;  ///< empty: where zojob was called
    bool labelled = false;
    bool run = false;
    bool wait = false;
    bool quiet = false;
    bool slurm = false;
    bool detach = false;
    std::string slurmOptions;           ///< one line
    std::vector<std::string> after;     ///< names of jobs that must have ended with 0
    std::vector<std::string> afterAny;  ///< names of jobs that must have ended
    std::string jobTimeout;             ///< seconds; empty: none
    long retries = 0;
    std::string then;
    std::string shell;
    bool hasLines = false;
    std::string linesFile;  ///< a command on each line; "-": standard input

    // kill
    double grace = 10;  ///< seconds
    bool goOn = false;

    // list
    std::vector<std::string> states;  ///< empty: all
    long count = -1;                  ///< the last so many jobs; -1: all
    double watch = 0;                 ///< seconds between two lists; 0: only one
    bool wide = false;
    bool noHeader = false;
    bool names = false;  ///< only names and descriptions, for completions

    bool script = false;  ///< show: the job's script with its environment

    // remove
    bool force = false;
    bool finished = false;  ///< those that have ended, but not those that have failed
    bool failed = false;    ///< those that have failed
    bool all = false;       ///< all that have ended

    // log
    bool follow = false;
    long lines = -1;  ///< the last so many lines; -1: all

    double timeout = -1;  ///< wait: seconds; -1: without end
};

/// Reads the command line. Throws Failure with WRONG_USAGE for one that makes no sense.
Options parseOptions(int argc, char** argv);

#endif

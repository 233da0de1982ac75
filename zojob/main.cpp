#include "zojob/Options.h"
#include "zojob/Report.h"
#include "zojob/Usage.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Json.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

struct Command {
    const char* name;
    int (*function)(const Options&);
};

static const Command COMMANDS[] = {
    { "submit", submitCommand }, { "list", listCommand },     { "run", runCommand },
    { "kill", killCommand },     { "remove", removeCommand }, { "log", logCommand },
    { "wait", waitCommand },     { "show", showCommand },     { "status", statusCommand },
    { "quit", quitCommand },     { "stop", quitCommand },     { "again", againCommand },
    { "window", windowCommand }, { "keep", keepCommand },
};

static void noteLookup(const std::string& sentence)
{
    static bool isSaid = false;
    if (!isSaid)
        note(sentence);
    isSaid = true;
}

static int runOptions(const Options& options)
{
    for (const Command& command : COMMANDS)
        if (options.command == command.name) {
            if (!Server::portComplaint().empty())
                note(Server::portComplaint());
            if (!options.quiet)
                Server::onSlowLookup(noteLookup);
            return command.function(options);
        }
    print(options.text);
    return DONE_WELL;
}

/// Ends the command. Who reads JSON finds a document there also then, but never two.
static int tell(const Failure& failure, const Options& options)
{
    if (options.json && !hasPrinted())
        writeJsonFailure(failure.text, failure.code, failure.otherUser);
    note(failure.text);
    return failure.code;
}

static int runProtected(int argc, char** argv)
{
    Options options;
    try {
        options = parseOptions(argc, argv);
        return runOptions(options);
    } catch (const Failure& failure) {
        return tell(failure, options);
    } catch (const JobError& error) {
        Failure failure(error);
        failure.text += failure.code == WRONG_USAGE ? helpHint(options.command) : "";
        return tell(failure, options);
    } catch (const std::exception& exception) {
        note(std::string("cannot go on: ") + exception.what());
        return REFUSED;
    }
}

static void noteSilence()
{
    static bool isSaid = false;
    if (!isSaid)
        note("the server has not answered yet, it may be busy: waiting for it, a minute at most");
    isSaid = true;
}

/// A reader that has seen enough, as in `zojob list | head -1`, is no failure; a full disk is.
static int finishOutput(int code)
{
    if (flushPrinted() || printError() == EPIPE)
        return code;
    errno = printError();
    note(withReason("cannot write to standard output"));
    return code == DONE_WELL ? REFUSED : code;
}

static void ignoreSignal(int)
{
}

/// Gives standard descriptors that the caller closed a place of their own, or a connection would
/// get theirs and what is printed. Reading and writing there fails.
static void occupyStandard()
{
    int fd = ::open("/dev/null", O_PATH);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = ::open("/dev/null", O_PATH);
    if (fd >= 0)
        ::close(fd);
}

int main(int argc, char** argv)
{
    occupyStandard();
    // What cannot be written is an error to report, not the end of the process. Handlers and not
    // SIG_IGN: nothing that is started from here must inherit that.
    std::signal(SIGPIPE, ignoreSignal);
    std::signal(SIGXFSZ, ignoreSignal);
    Server::onSilence(noteSilence);
    return finishOutput(runProtected(argc, argv));
}

#include "zojob/Report.h"
#include "zojob/command/Commands.h"

#include "jobs/JobError.h"

#include <cerrno>
#include <unistd.h>

static const char* const PROGRAM = "/bin/zojob-window";

int windowCommand(const Options& options)
{
    const std::string program = options.root + PROGRAM;
    ::execl(program.c_str(), program.c_str(), "--root", options.root.c_str(), (char*)nullptr);
    if (errno != ENOENT)
        throw Failure{ REFUSED, withReason("cannot start " + program) };
    throw Failure{ REFUSED, "the window is not installed: " + program +
                                " is missing. Install the package kelvo-schedule-window, or build "
                                "with Qt's Widgets (Debian: qt6-base-dev)" };
}

#include "jobs/Keeper.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"

int keepCommand(const Options& options)
{
    keepRunning(serverOf(options));
    return DONE_WELL;
}

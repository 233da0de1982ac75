#ifndef COMMANDS_H
#define COMMANDS_H

#include "jobs/Server.h"
#include "zojob/Options.h"

/// One function for each command. It returns the exit code, and throws Failure or JobError for what
/// stops it.
int submitCommand(const Options& options);
int listCommand(const Options& options);
int runCommand(const Options& options);
int killCommand(const Options& options);
int removeCommand(const Options& options);
int logCommand(const Options& options);
int waitCommand(const Options& options);
int showCommand(const Options& options);
int statusCommand(const Options& options);
int againCommand(const Options& options);
int quitCommand(const Options& options);
int keepCommand(const Options& options);  ///< for runQueue() alone; no help shows it
int windowCommand(const Options& options);

/// The server that the options mean.
inline Server serverOf(const Options& options, Server::Start start = Server::START)
{
    return Server(options.host, options.root, start);
}

#endif

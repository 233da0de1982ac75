#ifndef COMMANDS_H
#define COMMANDS_H

#include "zojob/Options.h"

/// One function a command. Each returns the exit code, and throws Failure for what stops it.
int submitCommand(const Options& options);
int listCommand(const Options& options);
int runCommand(const Options& options);
int killCommand(const Options& options);
int removeCommand(const Options& options);
int logCommand(const Options& options);
int waitCommand(const Options& options);
int showCommand(const Options& options);
int statusCommand(const Options& options);
int quitCommand(const Options& options);

#endif

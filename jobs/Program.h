#ifndef PROGRAM_H
#define PROGRAM_H

#include <string>
#include <sys/types.h>
#include <vector>

/// Starts a program with these words, the first of which is its name, without standard input and
/// output; with `mayTalk` it has the caller's standard error. Returns its process id, or -1 with
/// errno set. The caller collects it.
pid_t startProgram(const std::string& path, std::vector<std::string> words, bool mayTalk);

#endif

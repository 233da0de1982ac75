#include "jobs/Program.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

pid_t startProgram(const std::string& path, std::vector<std::string> words, bool mayTalk)
{
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t streams;
    ::posix_spawn_file_actions_init(&streams);
    for (int fd = 0; fd <= (mayTalk ? 1 : 2); ++fd)
        ::posix_spawn_file_actions_addopen(&streams, fd, "/dev/null", O_RDWR, 0);
    pid_t pid = -1;
    const int failed =
        ::posix_spawn(&pid, path.c_str(), &streams, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&streams);
    errno = failed;
    return failed ? -1 : pid;
}

// The host application's launcher: starts the job server in a process of its own.

#include "schedule/ZoClient.h"
#include "schedule/ZoJobServer.h"
#include "schedule/ZoSchedule.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static const char USAGE[] = "usage: start -jobserver [PORT]\n"
                            "       start --version | --help\n";

static const char HELP[] =
    "\n"
    "Runs the job server of the calling user in the foreground, on TCP port PORT. It ends after "
    "30\n"
    "seconds without a connection while no job runs. Applications start it by themselves; there\n"
    "is no need to run it by hand.\n"
    "\n"
    "JOB_PORT      the port where no PORT is given; %d without it. Applications look there, too\n"
    "JOB_LOG_FILE  file to which the server and its jobs append what they do; unset: no log\n"
    "JOB_SYNC      \"off\": do not wait for the disk; faster, but a power cut can cost the queue\n"
    "JOB_PEERS     who may send requests besides the user's own processes on this machine:\n"
    "              \"local\" (the default) nobody; \"any\" whoever reaches the port from another\n"
    "              machine and knows the user's name, who can then run commands as that user\n";

/// Prints a version record, "|key|value|key|value...", each pair on a line.
static void printVersion(const std::string& record)
{
    bool isKey = true;
    for (size_t start = 1; start <= record.size(); isKey = !isKey) {
        const size_t end = std::min(record.find('|', start), record.size());
        std::printf(isKey ? "%-14s " : "%s\n", record.substr(start, end - start).c_str());
        start = end + 1;
    }
}

static bool isPort(const char* text)
{
    const std::size_t digits = std::strspn(text, "0123456789");
    return digits > 0 && digits <= 5 && !text[digits] && std::atoi(text) >= 1 &&
           std::atoi(text) <= ZoProtocol::MAX_PORT;
}

/// Runs the server, without a port argument on the port where this user's clients look for it.
static int runServer(int argc, char** argv)
{
    if (argc > 2 && !isPort(argv[2])) {
        std::fprintf(stderr, "start: \"%s\" is no port\n%s", argv[2], USAGE);
        return 2;
    }
    if (argc > 2)
        return ZoJobServer::main(argc, argv);
    const int port = ZoClient::portOfUser();
    if (const char* const wrong = ZoClient::wrongPort())
        std::fprintf(stderr, "start: JOB_PORT is \"%s\", which is no port: using %d\n", wrong,
                     port);
    std::string text = std::to_string(port);
    char* words[] = { argv[0], argv[1], text.data(), nullptr };
    return ZoJobServer::main(3, words);
}

int main(int argc, char** argv)
{
    const char* const word = argc > 1 ? argv[1] : "";
    if (std::strcmp(word, "-jobserver") == 0) {
        const char* const peers = std::getenv("JOB_PEERS");  // who wants other machines says so
        if ((!peers || !*peers) && setenv("JOB_PEERS", "local", 1) != 0) {
            std::perror("start: JOB_PEERS");
            return 1;
        }
        return runServer(argc, argv);
    }
    if (std::strcmp(word, "--version") == 0) {
        printVersion(kelvopackage_schedule());
    } else if (std::strcmp(word, "--help") == 0) {
        std::printf("%s", USAGE);
        std::printf(HELP, ZoProtocol::DEFAULT_PORT);
    } else {
        std::fputs(USAGE, stderr);
        return 2;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

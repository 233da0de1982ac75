#include "bench/support/Place.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const char VARIABLE[] = "KELVO_BENCH_PLACE";
static const long long FIRST_ID = 1700000000;

[[noreturn]] static void fail(const std::string& what)
{
    ::perror(what.c_str());
    ::exit(1);
}

std::string Place::script()
{
    return KELVO_SOURCE_DIR "/bench/place.sh";
}

std::string Place::program()
{
    return fs::read_symlink("/proc/self/exe");
}

void Place::enter(char** argv)
{
    if (::getenv(VARIABLE)) {
        fs::current_path(home());
        return;
    }
    const std::string maker = script(), self = program();
    std::vector<const char*> words = { maker.c_str(), self.c_str() };
    while (*argv++)
        words.push_back(*argv);
    ::execv(maker.c_str(), const_cast<char**>(words.data()));
    fail(maker);
}

static std::string root()
{
    return ::getenv(VARIABLE);
}

std::string Place::installation()
{
    return KELVO_BUILD_DIR;
}

std::string Place::home()
{
    return root() + "/home";
}

std::string Place::queueFile()
{
    return home() + "/.zojobs-benchhost";
}

std::string Place::jobDirectory(long number)
{
    char name[32];
    ::snprintf(name, sizeof name, "/jobs/j%06ld", number);
    return root() + name;
}

std::string Place::marker(long number)
{
    return jobDirectory(number) + "/." + std::to_string(FIRST_ID + number);
}

void Place::makeJobs(long count)
{
    static long made = 0;
    for (; made < count; ++made) {
        if (::mkdir(jobDirectory(made).c_str(), 0775) != 0 && errno != EEXIST)
            fail(jobDirectory(made));
        if (::access(marker(made).c_str(), F_OK) != 0)
            write(marker(made), "");
    }
}

std::string Place::record(long number)
{
    const std::string tail =
        jobDirectory(number) + ":" + std::to_string(FIRST_ID + number) + ":0:0:0:-1\n";
    std::string head = "10:true -j2 all";
    const size_t rest = RECORD_SIZE - tail.size() - 1;
    return head + ":" + std::string(rest - head.size() - 1, 'd') + ":" + tail;
}

std::string Place::queueText(long count)
{
    std::string text;
    for (long i = 0; i < count; ++i)
        text += record(i);
    return text;
}

std::string Place::read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void Place::write(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    if (!file.write(text.data(), (std::streamsize)text.size()).flush())
        fail(path);
}

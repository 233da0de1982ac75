#ifndef VIEWFIXTURE_H
#define VIEWFIXTURE_H

#include "tests/zojob/Call.h"
#include "utlib/UtServerSocket.h"

#include <poll.h>
#include <regex>
#include <unistd.h>

namespace fs = std::filesystem;

/// The command of zojob's own jobs, whose directories hold their exit status.
const char OWN[] = "sh job || [ -s exit ] || echo $? >exit";
const int IDS = 1700000000;  // of the first job; the next ones follow

/// Jobs labelled alpha to golf in a queue file: some of another application, some of zojob.
class View : public ::testing::Test
{
protected:
    std::string records[7];
    UtServerSocket silent{ 1 };

    View()
    {
        const std::string own = std::to_string(::getpid());
        record(0, 12, "true", "alpha", 0, 3725);
        record(1, 12, OWN, "bravo", 1, 60, "3\n");
        record(2, 12, OWN, "charlie", 2, 0, "5\n");
        record(3, 13, OWN, "delta", 3, 1);
        record(4, 11, "sleep 9", "exec \"it\"", ::time(nullptr) - IDS - 60, 0, "", own);
        record(5, 10, "true", "f\xc3\xb3xtrot \x1b[31m\xff\xc2\x9b\u202e", -1, 0);
        record(6, 10, "true", "golf", -1, 0);
        save();
    }

    /// From now on nobody may ask a server: what is looked for stands in the queue file.
    void listenInVain() { EXPECT_EQ(0, silent.openSocket(Sandbox::SCHEDULE_PORT, -1, 0)); }

    void TearDown() override
    {
        struct pollfd asked = { silent.descriptor, POLLIN, 0 };
        EXPECT_EQ(0, ::poll(&asked, 1, 0)) << "somebody asked the server";
    }

    void record(int n, int state, const char* command, const char* label, long long start,
                int seconds, const char* status = "", const std::string& pid = "9000001")
    {
        const std::string place = Sandbox::path("place") + std::to_string(n);
        fs::create_directory(place);
        Sandbox::write(place + "/." + std::to_string(IDS + n), "");
        if (*status)
            Sandbox::write(place + "/exit", status);
        const long long begin = start < 0 ? 0 : IDS + start, end = seconds ? begin + seconds : 0;
        records[n] = std::to_string(state) + ":" + command + ":" + label + ":" + place + ":" +
                     std::to_string(IDS + n) + ":" + std::to_string(begin) + ":" +
                     std::to_string(state == 12 && !seconds ? begin : end) +
                     ":0:" + (start < 0 ? "-1" : pid) + "\n";
    }

    void save() const
    {
        std::string text;
        for (const std::string& one : records)
            text += one;
        Sandbox::write(Sandbox::queueFile(), text);
    }

    static std::string name(int n) { return std::to_string(IDS + n); }

    /// The first letters of the labels that a text shows, in its order; x for the one before golf.
    static std::string shown(const std::string& text)
    {
        static const std::regex labels("alpha|bravo|charlie|delta|exec |xtrot|golf");
        std::string letters;
        for (std::sregex_iterator i(text.begin(), text.end(), labels), end; i != end; ++i)
            letters += i->str()[0];
        return letters;
    }
};

#endif

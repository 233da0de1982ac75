#ifndef ZOJOBFIXTURE_H
#define ZOJOBFIXTURE_H

#include "schedule/ZoJobList.h"
#include "tests/zojob/Call.h"

#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;

/// A test with a server of its own on the port that every client connects to.
class Zojob : public ::testing::Test
{
protected:
    std::unique_ptr<TestServer> server =
        std::make_unique<TestServer>(Sandbox::SCHEDULE_PORT, [](ZoJobServer&) {});

    void TearDown() override { Call({ "quit" }); }  // also one that zojob started meanwhile

    static nlohmann::json job(const std::string& name)
    {
        return nlohmann::json::parse(Call({ "show", "--json", name }).out());
    }
    static nlohmann::json jobs() { return nlohmann::json::parse(Call({ "list", "--json" }).out()); }
    static std::string directory(const std::string& name) { return job(name)["directory"]; }
    static bool isRunning(const std::string& name) { return job(name)["state"] == "running"; }

    /// What a job prints when its command is run as the server runs it, and its status.
    static std::string runScript(const std::string& name)
    {
        const std::string place = directory(name);
        std::string command;
        const ZoJobList list;
        for (long i = 0; i < list.jobs.size(); ++i)
            if (list.jobs[i]->directory == place.c_str())
                command = list.jobs[i]->command;
        EXPECT_NE(-1, std::system(("cd " + place + " && exec >out 2>&1; " + command).c_str()));
        return Sandbox::read(place + "/out") +
               std::to_string(std::stoi(Sandbox::read(place + "/exit")));
    }
};

#endif

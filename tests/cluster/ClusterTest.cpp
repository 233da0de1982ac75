// Jobs that a real Slurm runs: that each ends here as it ended there, and that what is killed here
// ends there. After every test the cluster's queue must be empty.

#include "tests/zojob/Call.h"

#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

static const char SLURM[] = KELVO_SOURCE_DIR "/tests/cluster/slurm.sh";

static std::string shell(const std::string& line)
{
    return Process({ "sh", "-c", line }).line();
}

static nlohmann::json show(const std::string& name)
{
    return nlohmann::json::parse(zojob({ "show", "--json", name }));
}

static std::string stateThere(const std::string& name)
{
    const nlohmann::json cluster = show(name)["cluster"];
    return cluster.is_null() ? "" : (std::string)cluster["state"];
}

class Cluster : public ::testing::Test
{
protected:
    std::unique_ptr<TestServer> server;
    bool isUp = false;

    void SetUp() override
    {
        for (const char* const program : { "munged", "slurmctld", "slurmd", "sbatch" })
            if (shell("PATH=$PATH:/usr/sbin command -v " + std::string(program)).empty())
                GTEST_SKIP() << "no " << program
                             << " (Debian: munge, slurmctld, slurmd, slurm-client)";
        if (!::getenv("KELVO_SANDBOX_PRIVATE"))
            GTEST_SKIP() << "the cluster needs a network of its own (Debian: bubblewrap)";
        Process start({ "bash", SLURM, "start", place() });
        ASSERT_EQ(0, start.end()) << start.err();
        isUp = true;
        ::setenv("SLURM_CONF", (place() + "/slurm.conf").c_str(), 1);
        server = std::make_unique<TestServer>(Sandbox::SCHEDULE_PORT);
    }

    void TearDown() override
    {
        if (!isUp)
            return;
        EXPECT_TRUE(Sandbox::waitFor([] { return shell("squeue -h").empty(); }))
            << "left on the cluster: " << shell("squeue -h");
        Call({ "quit" });
        Process({ "bash", SLURM, "stop", place() });
    }

    static std::string place() { return Sandbox::path("cluster"); }
    static int controller() { return std::atoi(Sandbox::read(place() + "/pid.slurmctld").c_str()); }
    /// Ends the controller and starts it again.
    static void restartController(const char* option)
    {
        const int ended = controller();
        ::kill(ended, SIGTERM);
        EXPECT_TRUE(Sandbox::waitFor([&] { return ::kill(ended, 0) != 0; }));
        EXPECT_EQ("", shell("PATH=$PATH:/usr/sbin slurmctld " + std::string(option) + " 2>&1"));
    }
    static bool isRunningThere(const std::string& name)
    {
        return Sandbox::waitFor([&] { return holds(stateThere(name), "RUNNING"); });
    }
    static std::string directory(const std::string& name) { return show(name)["directory"]; }
};

TEST_F(Cluster, EveryEndIsTheJobs)
{
    const struct {
        const char* options;
        const char* command;
        int status;
        const char* output;
    } rows[] = {
        { "", "echo badly; exit 3", 3, "badly\n" },
        { "", "kill -9 $$", 137, "" },
        { "-a1-6%3", "echo $SLURM_ARRAY_TASK_ID; exit $SLURM_ARRAY_TASK_ID", 6, "6\n" },
        { "-n3", "srun sh -c 'echo task $SLURM_PROCID'", 0, "task 2\n" },
        { "", "trap 'echo warned; exit 4' USR1; sleep 1; kill -USR1 $PPID; sleep 9 & wait", 4,
          "warned\n" },
        { "--signal=B:TERM", "trap 'exit 5' TERM; sleep 1; kill $PPID; sleep 9 & wait", 5, "" },
        { "", "scancel $SLURM_JOB_ID; sleep 60", 143, "zojob: cancelled on the cluster\n" },
        { "", "scontrol update JobId=$SLURM_JOB_ID TimeLimit=0; sleep 60", 124,
          "zojob: ran into the time limit of the cluster\n" },
        { "--no-requeue -w n3",
          "trap '' TERM; scontrol update NodeName=n3 State=DOWN Reason=x; sleep 60", 125,
          "zojob: its node failed\n" },
        { "--mem=50", "exec python3 -c 'import time; x = bytearray(200 << 20); time.sleep(60)'",
          137, "exceeded memory limit" },
        { "-o /none/log", "true", 125, "zojob: the cluster could not begin it" },
        { "-p none", "true", 125, "zojob: sbatch refused the job" },
        { "--chdir=/", "pwd", 0, "/\n" },
    };
    std::vector<std::string> names;
    std::vector<std::unique_ptr<Process>> scripts;
    for (const auto& row : rows) {
        const bool isN3 = holds(row.options, "n3 ") || holds(row.options, "-w");
        const std::string slurm = "--slurm=" + std::string(row.options) + (isN3 ? "" : " -x n3");
        names.push_back(Call({ "submit", slurm, row.command }).line());
        const std::string place = directory(names.back());
        scripts.push_back(std::make_unique<Process>(
            Words{ "sh", "-c", "cd " + place + " && exec sh job >>log 2>&1" }));
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(rows[i].status, scripts[i]->end()) << rows[i].command;
        const std::string log = Sandbox::read(directory(names[i]) + "/log");
        EXPECT_TRUE(holds(log, rows[i].output)) << rows[i].command << ": " << log;
    }
}

TEST_F(Cluster, RunsAsItWasSubmitted)
{
    std::filesystem::create_directory("a 'b");
    ::setenv("HOSTILE", "a\n\"b\" 'c' $(d) \\", 1);
    ::setenv("SLURM_JOB_ID", "99", 1);  // as within an allocation
    ::setenv("SLURM_ARRAY_TASK_ID", "77", 1);
    for (const char* const hostile :
         { "SBATCH_EXPORT=NONE", "SBATCH_WAIT=1", "SQUEUE_USERS=nobody", "SQUEUE_PARTITION=none" })
        ::putenv(const_cast<char*>(hostile));
    const std::string line = "printf '%s|' \"$PWD\" \"$HOSTILE\" $SLURM_JOB_NAME "
                             "$SLURM_NTASKS$SLURM_ARRAY_TASK_ID";
    const std::string name =
        Call({ "submit", "-C", "a 'b", "-L", "%j\\\"'é", "--slurm=-n 2 --comment 'x y'", line })
            .line();
    zojob({ "submit", "-rwq", "--slurm", "-" }, 5,
          "#!/usr/bin/env python3\n#SBATCH -J named\n\nimport os, sys\n"
          "print(os.environ['SLURM_JOB_NAME'])\nsys.exit(5)\n#SBATCH -n99\n");
    EXPECT_EQ("named", Call({ "log", "last" }).line());
    EXPECT_EQ(Sandbox::path("a 'b") + "|a\n\"b\" 'c' $(d) \\|%j\\''é|2|", zojob({ "log", name }));
    EXPECT_EQ(0, show(name)["exit"]);
}

TEST_F(Cluster, WhatIsKilledWhileItIsHandedOverEndsThere)
{
    // Slow on both sides of the moment in which the cluster takes the job.
    Sandbox::write("sbatch", "#!/bin/sh\nsleep 0.02\n" + shell("command -v sbatch") +
                                 " \"$@\"\nsleep 0.02\n");
    ::chmod("sbatch", 0700);
    ::setenv("PATH", (Sandbox::path() + ":" + ::getenv("PATH")).c_str(), 1);
    for (const char* const sh : { "dash", "bash --posix" })
        for (const int delay : { 0, 5, 10, 15, 20, 30, 50, 80 }) {
            const std::string place = directory(Call({ "submit", "--slurm=-H", "true" }).line());
            Process script(
                { "sh", "-c", "cd " + place + " && exec setsid " + sh + " job - >log 2>&1" });
            ::usleep(delay * 1000);
            Sandbox::write(place + "/kill", "");
            Sandbox::waitFor([&] { return ::kill(-script.pid, SIGTERM) == 0; });
            EXPECT_EQ(143, script.end())
                << sh << ", " << delay << " ms: " << Sandbox::read(place + "/log");
        }
}

TEST_F(Cluster, WhatIsKilledEndsThere)
{
    const std::string trap = "trap 'echo told; exit 0' TERM; echo up; sleep 60 & wait";
    const std::string running = Call({ "submit", "-r", "--slurm", trap }).line();
    EXPECT_TRUE(
        Sandbox::waitFor([&] { return holds(Sandbox::read(directory(running) + "/log"), "up"); }));
    zojob({ "kill" });
    EXPECT_EQ("killed", show(running)["state"]);
    EXPECT_EQ(143, show(running)["exit"]);
    EXPECT_TRUE(holds(zojob({ "log", running }), "told"));

    const std::string waiting = Call({ "submit", "-r", "--slurm=-H", "sleep 60" }).line();
    EXPECT_TRUE(Sandbox::waitFor([&] { return stateThere(waiting) == "PENDING (JobHeldUser)"; }));
    zojob({ "kill", waiting });
    EXPECT_EQ("CANCELLED", stateThere(waiting));

    const std::string unheard = Call({ "submit", "-r", "--slurm", "sleep 60" }).line();
    EXPECT_TRUE(isRunningThere(unheard));
    ::kill(controller(), SIGSTOP);
    Call kill({ "kill", unheard });
    EXPECT_FALSE(kill.hasEnded(5));
    EXPECT_TRUE(holds(Sandbox::read(directory(unheard) + "/log"), "does not answer"));
    ::kill(controller(), SIGCONT);
    EXPECT_EQ(0, kill.end());
    EXPECT_EQ("CANCELLED", stateThere(unheard));
}

TEST_F(Cluster, AControllerThatIsAwayLosesNothing)
{
    ::kill(controller(), SIGSTOP);  // hears what is sent meanwhile when it goes on
    const std::string name =
        Call({ "submit", "-r", "--slurm", "echo once; sleep 4; exit 6" }).line();
    Call wait({ "wait", name });
    EXPECT_FALSE(wait.hasEnded(6));
    ::kill(controller(), SIGCONT);
    EXPECT_TRUE(isRunningThere(name));
    restartController("");
    EXPECT_EQ(6, wait.end());
    EXPECT_EQ("once\n",
              Process({ "grep", "-v", "^Starting\\|^zojob", directory(name) + "/log" }).out());

    const std::string forgotten = Call({ "submit", "-r", "--slurm=-H", "--detach", "true" }).line();
    EXPECT_TRUE(Sandbox::waitFor([&] { return holds(stateThere(forgotten), "PENDING"); }));
    restartController("-c");  // without what it knew
    zojob({ "wait", forgotten }, 125);
    EXPECT_EQ("FORGOTTEN", stateThere(forgotten));
}

TEST_F(Cluster, AShutdownIsNoKill)
{
    const std::string name =
        Call({ "submit", "-r", "--slurm", "sleep 3; echo end; exit 9" }).line();
    EXPECT_TRUE(isRunningThere(name));
    zojob({ "quit" });  // the server may end as well
    shell("kill $(pgrep -f '^sh job -')");
    EXPECT_TRUE(Sandbox::waitFor([&] { return (bool)show(name)["cluster"]["detached"]; }));
    EXPECT_TRUE(holds(zojob({ "log", name }), "goes on"));
    zojob({ "wait", name }, 9);
    EXPECT_EQ("failed", show(name)["state"]);
}

TEST_F(Cluster, DetachedJobsRunSideBySide)
{
    std::vector<std::string> names;
    for (int i = 1; i <= 10; ++i)
        names.push_back(Call({ "submit", "--slurm", "--detach",
                               "echo out; sleep 2; exit " + std::to_string(i) })
                            .line());
    const std::string longest = Call({ "submit", "--slurm", "--detach", "sleep 60" }).line();
    const std::string array =
        Call({ "submit", "--slurm=-a1-4", "--detach", "sleep 2; exit $SLURM_ARRAY_TASK_ID" })
            .line();
    zojob({ "submit", "-rwq", "true" });  // behind them
    EXPECT_TRUE(isRunningThere(longest));
    Call follow({ "log", "-f", names[0] });
    for (int i = 1; i <= 10; ++i)
        zojob({ "wait", names[i - 1] }, i);
    zojob({ "wait", array }, 4);
    EXPECT_EQ("out\n", follow.out());
    zojob({ "remove", longest }, 1);
    EXPECT_TRUE(holds(zojob({ "list", "--state", "running" }), "RUNNING on"));
    // A list asks the cluster nothing, and a wait not more than once in 8 seconds.
    Sandbox::write("squeue", "#!/bin/sh\necho asked >>" + Sandbox::path("asked") + "\nexit 1\n");
    ::setenv("PATH", (Sandbox::path() + ":" + ::getenv("PATH")).c_str(), 1);
    ::chmod("squeue", 0700);
    for (int i = 0; i < 3; ++i)
        zojob({ "list" });
    EXPECT_EQ("", Sandbox::read("asked"));
    zojob({ "wait", "--timeout", "3", longest }, 124);
    zojob({ "show", longest });
    EXPECT_GE(6u, Sandbox::read("asked").size());
    ::unlink("squeue");
    zojob({ "kill", longest });
    EXPECT_EQ("killed", show(longest)["state"]);
}

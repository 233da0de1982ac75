#include "jobs/Cluster.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/Program.h"
#include "jobs/QueueWatch.h"
#include "jobs/Slurm.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static const double ASK_AGAIN = 8;  // seconds between two questions about one job
static const double STEP = 0.02;    // seconds between two looks for the answer
static const int MODE = 0600;
static const char* const CANCELLED = "143 CANCELLED";  // as an engine writes it

/// The queue's record names the files that the job's script needs.
static bool isOfCluster(const Job& job)
{
    return job.command.find(" cluster/batch ") != std::string::npos &&
           JobDirectory(job).hasScript();
}

static std::string path(const Job& job, const char* name)
{
    return job.directory + "/cluster/" + name;
}

/// A file of one line, "" where there is none; `time` gets that of its last change.
static std::string readLine(const std::string& file, long long* time = nullptr)
{
    struct stat status;
    std::string line;
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return line;
    char text[256];
    const ssize_t n = ::read(fd, text, sizeof text);
    if (n > 0)
        line.assign(text, std::find(text, text + n, '\n'));
    if (time && ::fstat(fd, &status) == 0)
        *time = status.st_mtime;
    ::close(fd);
    return line;
}

/// Of an array whose tasks have all told their status: the highest one; -1 before.
static int statusOfTasks(const Job& job, long long& time)
{
    const long count = std::atol(readLine(path(job, "count")).c_str());
    const std::string place = path(job, "tasks/");
    DIR* const tasks = count > 0 ? ::opendir(place.c_str()) : nullptr;
    if (!tasks)
        return -1;
    std::vector<std::string> ended;
    while (const struct dirent* const entry = ::readdir(tasks))
        if (entry->d_name[0] != '.')
            ended.push_back(place + entry->d_name);
    ::closedir(tasks);
    if ((long)ended.size() < count)
        return -1;
    int highest = -1;
    for (const std::string& task : ended) {
        long long changed = 0;
        highest = std::max(highest, std::atoi(readLine(task, &changed).c_str()));
        time = std::max(time, changed);
    }
    return highest;
}

/// What the files say of the end; the status is -1 while there is none. A command that is killed
/// may end with any status of its own.
static void readEnd(Job& job, bool isKilled, long long& time)
{
    Job::Cluster& cluster = job.cluster;
    std::string line = readLine(path(job, "end"), &time);
    if (line.empty())
        line = readLine(path(job, "tasks/job"), &time);
    if (isKilled && !line.empty() && line.find(' ') == std::string::npos)
        line = CANCELLED;
    cluster.status = line.empty() ? statusOfTasks(job, time) : std::atoi(line.c_str());
    const std::size_t blank = line.find(' ');
    if (blank != std::string::npos)
        cluster.state = line.substr(blank + 1);
    else if (cluster.status >= 0)
        cluster.state = cluster.status == 0 ? "COMPLETED" : "FAILED";
}

void readCluster(Job& job)
{
    if (job.isWaiting() || !isOfCluster(job))
        return;
    const std::string id = readLine(path(job, "id"));
    if (id.empty())
        return;
    const bool isStoodFor = job.isRunning() && !job.isDetached;
    long long time = 0;
    job.cluster = Job::Cluster();
    job.cluster.id = id;
    job.cluster.state = readLine(path(job, "state"));
    if (job.cluster.state.empty())
        job.cluster.state = "PENDING";
    if (isStoodFor)
        return;
    const bool isKilled = ::access((job.directory + "/kill").c_str(), F_OK) == 0;
    readEnd(job, isKilled, time);
    job.isDetached = job.cluster.status < 0;
    if (job.isDetached) {
        job.state = ZoJob::RUNNING;
        job.endTime = 0;  // of the hand-over
    } else {
        job.state = isKilled ? ZoJob::KILLED : ZoJob::DONE;
        job.endTime = std::max(job.endTime, time);
    }
}

std::string clusterText(const Job& job)
{
    if (job.cluster.id.empty() || job.cluster.status == 0)
        return "";
    return "[" + job.cluster.id + " " + job.cluster.state + "] ";
}

void readClusters(std::vector<Job>& jobs)
{
    for (Job& job : jobs)
        readCluster(job);
}

/// Starts a shell with this text and these arguments.
static pid_t startShell(const std::string& text, std::vector<std::string> arguments, bool mayTalk)
{
    arguments.insert(arguments.begin(), { "sh", "-c", text, "sh" });
    return startProgram("/bin/sh", arguments, mayTalk);
}

/// Says that a job of a cluster is to be killed: a script that stands for it and is ended without
/// that leaves it on the cluster.
static void markKill(const Job& job)
{
    const std::string place = job.directory + "/kill";
    const int fd = ::open(place.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, MODE);
    if (fd < 0)
        throw JobError(JobError::FILE_FAILED,
                       withReason("nothing was killed, cannot make " + place));
    ::close(fd);
}

/// Cancels what the cluster has of the job.
static void cancel(const Job& job, double seconds)
{
    const double end = secondsNow() + seconds;
    const pid_t pid = startShell(Slurm::cancelText(), { job.directory }, true);
    if (pid < 0)
        throw JobError(JobError::FILE_FAILED, withReason("cannot start a shell"));
    while (::waitpid(pid, nullptr, WNOHANG) == 0 && (seconds < 0 || secondsNow() < end))
        sleepSeconds(STEP);
}

bool killJob(const Server& server, const Job& job, double seconds)
{
    if (!isOfCluster(job))
        return server.kill();
    markKill(job);
    if (!job.isDetached && !server.kill()) {
        (void)::unlink((job.directory + "/kill").c_str());  // it is not to be killed at its begin
        return false;
    }
    cancel(job, seconds);  // its script does so too, unless it had just handed the job over
    return true;
}

/// Whether it is time to ask about a job; then it is noted that it was asked.
static bool isDue(const Job& job)
{
    struct stat status;
    const std::string file = path(job, "asked");
    if (::stat(file.c_str(), &status) == 0) {
        const std::time_t age = std::time(nullptr) - status.st_mtime;
        if (age >= 0 && age < ASK_AGAIN)  // below 0 the clock was set back meanwhile
            return false;
    }
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, MODE);
    if (fd < 0)
        return false;  // and nothing could be noted
    const bool isNoted = ::futimens(fd, nullptr) == 0;
    ::close(fd);
    return isNoted;
}

void ClusterQuestion::ask(const std::vector<Job>& jobs)
{
    if (!isAnswered())
        return;
    std::vector<std::string> directories;
    for (const Job& job : jobs)
        if (job.isDetached && isDue(job))
            directories.push_back(job.directory);
    if (!directories.empty())
        pid = startShell(Slurm::tellText(), directories, false);
}

bool ClusterQuestion::isAnswered()
{
    if (pid > 0 && ::waitpid(pid, nullptr, WNOHANG) != 0)
        pid = -1;
    return pid < 0;
}

void ClusterQuestion::wait(double seconds)
{
    const double end = secondsNow() + seconds;
    while (!isAnswered() && secondsNow() < end)
        sleepSeconds(STEP);
}

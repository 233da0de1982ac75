#include "jobs/Submission.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobScript.h"
#include "jobs/NewJobDirectory.h"
#include "jobs/QueueAddition.h"
#include "jobs/QueueFile.h"
#include "jobs/QueueWatch.h"
#include "jobs/Slurm.h"
#include "jobs/Text.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

static const unsigned CAREFUL_UMASK = 077;  // where the kernel does not tell

/// The umask of this process. umask() itself would change it for a moment, for all threads.
static unsigned ownUmask()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        unsigned mask;
        if (word == "Umask:" && status >> std::oct >> mask)
            return mask;
    }
    return CAREFUL_UMASK;
}

/// A limit in the units of ulimit.
static std::string limitText(rlim_t value, rlim_t unit)
{
    return value == RLIM_INFINITY ? "unlimited" : std::to_string((value + unit - 1) / unit);
}

static std::vector<std::pair<char, std::string>> ownLimits()
{
    const struct {
        char letter;
        int resource;
        rlim_t unit;
    } kinds[] = {
        { 't', RLIMIT_CPU, 1 },      { 'f', RLIMIT_FSIZE, 512 }, { 'd', RLIMIT_DATA, 1024 },
        { 's', RLIMIT_STACK, 1024 }, { 'c', RLIMIT_CORE, 512 },  { 'v', RLIMIT_AS, 1024 },
        { 'n', RLIMIT_NOFILE, 1 },
    };
    std::vector<std::pair<char, std::string>> limits;
    struct rlimit limit;
    for (const auto& kind : kinds)
        if (::getrlimit((__rlimit_resource_t)kind.resource, &limit) == 0)
            limits.emplace_back(kind.letter, limitText(limit.rlim_cur, kind.unit));
    return limits;
}

/// The program that this user wants to be told of every job's end.
static std::string donePath()
{
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    if (config && config[0] == '/')
        return std::string(config) + "/zojob/done";
    return home && home[0] == '/' ? std::string(home) + "/.config/zojob/done" : "";
}

Submission::Submission()
    : umask(ownUmask()),
      done(donePath()),
      niceness(::getpriority(PRIO_PROCESS, 0)),
      limits(ownLimits())
{
    for (char** entry = environ; entry && *entry; ++entry)
        environment.push_back(*entry);
}

static bool namesInterpreter(const std::string& script)
{
    return script.compare(0, 2, "#!") == 0;
}

void Submission::check() const
{
    if (body.find_first_not_of(" \t\n") == std::string::npos)
        throw JobError(JobError::INVALID, "the command is empty: nothing was submitted");
    struct stat status;
    if (::stat(directory.c_str(), &status) != 0)
        throw JobError(JobError::FILE_FAILED, withReason("the job cannot run in " + directory));
    if (!S_ISDIR(status.st_mode))
        throw JobError(JobError::FILE_FAILED,
                       "the job cannot run in " + directory + ": it is no directory");
    if (!namesInterpreter(body) && !isProgram(shell, environment))
        throw JobError(JobError::INVALID,
                       "no program '" + shell + "' is found to run the job with");
    if (cluster && !Slurm::isHere(environment))
        throw JobError(JobError::FILE_FAILED,
                       "no sbatch is found through PATH: this machine knows no cluster");
}

void Submission::writeScript(NewJobDirectory& place) const
{
    // A file of its own, so that the numbers of lines in messages are those of the user.
    const std::string script = "\"$zj_d/script\"";
    place.writeFile("script", body);
    place.writeFile("job", scriptText(place.path, *this,
                                      plainCommand(namesInterpreter(body)
                                                       ? script
                                                       : shellQuoted(shell) + " " + script)));
}

static const char* const DETACH = "detach\n";

/// What was asked for, so that it can be asked for again.
static std::string givenText(const Submission::Cluster& cluster)
{
    std::string text = cluster.detach ? DETACH : "\n";
    for (const std::string& option : cluster.options)
        text += shellQuoted(option) + " ";
    return text;
}

std::optional<Submission::Cluster> Submission::givenCluster(const std::string& jobDirectory)
{
    std::ifstream file(jobDirectory + "/cluster/given", std::ios::binary);
    std::ostringstream text;
    if (!(text << file.rdbuf()))
        return {};
    const std::size_t end = text.str().find('\n') + 1;
    return Cluster{ Slurm::splitOptions(text.str().substr(end)),
                    text.str().substr(0, end) == DETACH };
}

void Submission::writeClusterScript(NewJobDirectory& place) const
{
    Submission here = *this;
    const std::string script = shellQuoted(place.path + "/script");
    place.makeDirectory("cluster");
    place.makeDirectory("cluster/tasks");
    place.writeFile("script", body);
    place.writeFile("cluster/given", givenText(*cluster));
    place.writeFile("cluster/library", Slurm::libraryText());
    place.writeFile(
        "cluster/batch",
        Slurm::batchText(place.path, description, directory,
                         (namesInterpreter(body) ? "" : shellQuoted(shell) + " ") + script, body,
                         cluster->options));
    Slurm::leaveAllocation(here.environment);
    const std::string stand = Slurm::standText(place.path, cluster->options, cluster->detach);
    place.writeFile("job", scriptText(place.path, here, exportedCommand(here.environment, stand)));
}

/// Writes all files of the job, and returns the command for the queue.
std::string Submission::write(NewJobDirectory& place) const
{
    if (cluster)
        writeClusterScript(place);
    else
        writeScript(place);
    for (const Condition& condition : after)
        JobDirectory::noteAwaited(condition.directory, place.path);
    return place.finish();
}

/// Throws JobError where the queue cannot be written: before anything is made.
static void checkQueue(const Server& server)
{
    const std::string trouble = server.isThisMachine() ? QueueFile().trouble() : "";
    if (!trouble.empty())
        throw JobError(JobError::FILE_FAILED, "nothing was submitted: " + trouble);
}

static std::string submit(NewJobDirectory& place, const Server& server, const std::string& command,
                          const std::string& description)
{
    if (!server.submit(command.c_str(), description, place.path))
        throw JobError(JobError::REFUSED, "the server did not take the job");
    place.keep = true;
    if (!readQueue(server).findDirectory(place.path)) {
        place.keep = false;
        checkQueue(server);
        throw JobError(JobError::REFUSED,
                       "the server took the job, but it is not in the queue: the server may be "
                       "one of another home directory or host name, as outside of a container");
    }
    return place.path;
}

std::string Submission::queue(const Server& server) const
{
    checkQueue(server);
    NewJobDirectory place;
    return submit(place, server, write(place), description);
}

std::vector<std::string> Submission::queueAll(const Server& server,
                                              const std::vector<Submission>& submissions)
{
    std::vector<std::string> paths;
    std::vector<std::unique_ptr<NewJobDirectory>> places;
    QueueAddition addition;
    checkQueue(server);
    for (const Submission& submission : submissions) {
        const bool isLast = &submission == &submissions.back();
        if (!server.isThisMachine() || isLast)
            break;
        places.push_back(std::make_unique<NewJobDirectory>(false));
        addition.add(submission.write(*places.back()), submission.description, places.back()->path);
    }
    if (!places.empty()) {
        addition.save();
        for (const auto& place : places) {
            place->keep = true;
            paths.push_back(place->path);
        }
    }
    // The server takes notice of the others with the last one.
    for (std::size_t i = paths.size(); i < submissions.size(); ++i)
        paths.push_back(submissions[i].queue(server));
    return paths;
}

std::string Submission::again(const Server& server, const Job& job)
{
    const JobDirectory old(job);
    if (job.isWaiting() && old.isCancelled()) {
        if (!old.setCancelled(false))
            throw JobError(JobError::FILE_FAILED,
                           withReason("the job in " + job.directory + " cannot be brought back"));
        return job.directory;
    }
    if (!old.isOurs())
        throw JobError(JobError::REFUSED,
                       "another application's job cannot be submitted again: its environment is "
                       "not known here");
    checkQueue(server);
    NewJobDirectory place;
    place.writeFile("script", old.text("script"));
    if (::access((job.directory + "/cluster/batch").c_str(), F_OK) == 0) {
        place.makeDirectory("cluster");
        place.makeDirectory("cluster/tasks");
        place.writeFile("cluster/given", old.text("cluster/given"));
        place.writeFile("cluster/library", old.text("cluster/library"));
        place.writeFile("cluster/batch",
                        copiedScript(old.text("cluster/batch"), job.directory, place.path));
    }
    place.writeFile("job", copiedScript(old.script(), job.directory, place.path));
    return submit(place, server, place.finish(), job.description);
}

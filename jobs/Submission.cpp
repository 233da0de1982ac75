#include "jobs/Submission.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobScript.h"
#include "jobs/NewJobDirectory.h"
#include "jobs/QueueWatch.h"
#include "jobs/Slurm.h"
#include "jobs/Text.h"

#include <fstream>
#include <sstream>
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

Submission::Submission() : umask(ownUmask())
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
    if (cluster && !Slurm::isHere(environment))
        throw JobError(JobError::FILE_FAILED,
                       "no sbatch is found through PATH: this machine knows no cluster");
}

void Submission::writeScript(NewJobDirectory& place) const
{
    if (namesInterpreter(body)) {
        place.writeFile("script", body);
        place.writeFile("job", scriptText(place.path, *this, shellQuoted(place.path + "/script")));
    } else {
        place.writeFile("job", scriptText(place.path, *this, body));
    }
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
    place.writeFile("cluster/batch",
                    Slurm::batchText(place.path, description, directory,
                                     (namesInterpreter(body) ? "" : "sh ") + script, body,
                                     cluster->options));
    Slurm::leaveAllocation(here.environment);
    place.writeFile("job",
                    scriptText(place.path, here,
                               Slurm::standText(place.path, cluster->options, cluster->detach)));
}

std::string Submission::queue(const Server& server) const
{
    NewJobDirectory place;
    if (cluster)
        writeClusterScript(place);
    else
        writeScript(place);
    if (!server.submit(place.finish().c_str(), description, place.path))
        throw JobError(JobError::REFUSED, "the server did not take the job");
    place.keep = true;
    if (!readQueue(server).findDirectory(place.path)) {
        place.keep = false;
        throw JobError(JobError::REFUSED,
                       "the server took the job, but it is not in the queue: the disk may be full, "
                       "the home directory read-only, or the server one of another home directory "
                       "or host name, as outside of a container");
    }
    return place.path;
}

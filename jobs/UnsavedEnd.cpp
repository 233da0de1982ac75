#include "jobs/UnsavedEnd.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "schedule/ZoProcessTree.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

static const char* const KILLED = "143 killed -\n";
static const long long BEGINNING = 1;  // seconds in which a job child may have no child yet
static const long long MORE = 8192;    // bytes, besides another copy of the queue: its journal

/// Whether the directory's disk has room for so many bytes; false with errno set.
static bool hasRoom(const std::string& directory, long long size)
{
    // A file without a name: only a try knows of quotas and of what is kept for root.
    const int fd = ::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (fd >= 0) {
        const int error = ::posix_fallocate(fd, 0, size);
        ::close(fd);
        errno = error;
        return error == 0 || error == EINTR;
    }
    struct statvfs disk;
    if (errno == ENOSPC || errno == EDQUOT || errno == EROFS)
        return false;
    errno = ENOSPC;
    return ::statvfs(directory.c_str(), &disk) != 0 ||
           (long long)disk.f_bavail * (long long)disk.f_frsize >= size;
}

std::string whyNotWritten(const std::string& directory, const std::string& file)
{
    struct stat status;
    // Not opened: whoever watches the file would take its closing for a change.
    const bool isThere = ::stat(file.c_str(), &status) == 0;
    const bool isAllowed =
        isThere ? ::access(file.c_str(), W_OK) == 0 : ::access(directory.c_str(), W_OK | X_OK) == 0;
    if (isAllowed && hasRoom(directory, (isThere ? status.st_size : 0) + MORE))
        return "";
    const bool isFull = errno == ENOSPC || errno == EDQUOT;
    return withReason(file + " cannot be written") + (isFull ? "; make room" : "");
}

/// The arguments of a process.
static std::vector<std::string> wordsOf(int pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    std::vector<std::string> words;
    for (std::string word; std::getline(file, word, '\0');)
        words.push_back(word);
    return words;
}

/// Ends the job as the text of its file "exit" says.
static void end(Job& job, const std::string& text, long long time)
{
    job.state = JobDirectory::endOf(text).outcome == "killed" ? ZoJob::KILLED : ZoJob::DONE;
    job.endTime = time;
    job.isUnsaved = true;
}

/// Whether one of these processes is the job's script, which keeps its end (see ScriptShell.h).
static bool takeKept(Job& job, UtDArray<int>& pids)
{
    for (long i = 0; i < pids.size(); ++i) {
        const std::vector<std::string> words = wordsOf(pids[i]);
        if (words.size() != 10 || words[3] != "zojob-end")
            continue;
        job.keptEnd = words[4] + " " + words[5] + " " + words[6] + "\n";
        end(job, job.keptEnd, std::atoll(words[7].c_str()));
        return true;
    }
    return false;
}

/// Whether the job child lives, and nothing below it but a script that keeps the job's end.
static bool hasEndedUnsaved(Job& job)
{
    ZoProcessTree tree;
    UtDArray<int> pids;
    tree.look();
    tree.appendBelow(pids, job.pid);
    bool isSeen = false;
    for (long i = 0; i < tree.ids.size(); ++i)
        isSeen = isSeen || tree.ids[i] == job.pid;
    return takeKept(job, pids) || (isSeen && pids.size() == 0);
}

static void look(Job& job, bool isTrouble)
{
    const JobDirectory files(job);
    const bool isWritten = files.recordedStatus() >= 0;
    const std::string text = isWritten ? files.text("exit") : "";
    const long long now = std::time(nullptr), time = isWritten ? (long long)files.endTime() : now;
    if (job.isAbandoned()) {
        if (isWritten || isTrouble)
            end(job, isWritten ? text : KILLED, time);
    } else if (isTrouble && job.pid > 0 && now - job.startTime > BEGINNING &&
               hasEndedUnsaved(job)) {
        if (!job.isUnsaved)
            end(job, text, time);
    }
}

void readUnsavedEnds(Queue& queue)
{
    for (Job& job : queue.jobs)
        if (job.isRunningHere())
            look(job, !queue.trouble.empty());
}

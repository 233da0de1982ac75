#ifndef JOBLOG_H
#define JOBLOG_H

#include "jobs/Job.h"

#include <string>
#include <sys/types.h>

/// The output of a job, read as it grows; without the line by which the server repeats a command
/// that says nothing, since the real one is in the job's script.
class JobLog
{
public:
    const std::string path;

    explicit JobLog(const Job& job);
    ~JobLog();
    JobLog(const JobLog&) = delete;
    JobLog& operator=(const JobLog&) = delete;

    /// Opens the file unless it is open; false while it does not exist. Throws JobError, as do the
    /// others.
    bool open();

    /// Leaves out all but the last lines of what has not been read yet. The file must be open.
    void skipToLast(long lines);

    /// Bytes that have not been read yet; negative when the file has been cut since. The file must
    /// be open.
    long long unread() const;

    /// Goes to the start of the first line within the last so many bytes of the file, or to the
    /// start of a shorter one. Returns how many bytes lie before. The file must be open.
    long long goToLast(long long bytes);

    /// What comes next, at most so many bytes; empty when there is no more for now. The file must
    /// be open.
    std::string read(std::size_t most);

private:
    void skipStart();
    std::size_t readAt(char* buffer, std::size_t size, off_t offset) const;

    const bool isMarked;
    std::string start;  // at the head of the file, not shown
    int fd = -1;
    off_t position = 0;
};

#endif

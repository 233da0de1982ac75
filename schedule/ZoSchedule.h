#ifndef ZOSCHEDULE_H
#define ZOSCHEDULE_H

#include "schedule/ZoExport.h"
#include "schedule/ZoJob.h"
#include "utlib/UtDArray.h"
#include "utlib/UtHandle.h"

/// The job queue as a host application sees it. Call ZoScheduleOpen(), then exactly one of the
/// request functions with the descriptor that it returned; every request needs a connection of its
/// own. The functions print nothing and throw nothing; call them from one thread at a time.
///
///     int fd = ZoScheduleOpen(nullptr, "/opt/kelvo", "", "");
///     if (ZoScheduleJobSubmit(fd, "make all", "nightly build", nullptr) == 0) ...
///     if (fd >= 0)
///         close(fd);

/// Connects to the job server of `host`; null is this machine. The port is the usual one, unless
/// the variable JOB_PORT names another (1 to 65535). On this machine whoever listens there must be
/// this user or root: another user's listener learns nothing, and the result is -1. When nobody
/// answers and the host is null or this machine's official name (no alias, not "localhost"), starts
/// the server with the launcher "bin/start" under `rootDirectory` (at most 245 characters) and
/// waits up to 10 seconds for it; this is tried again at most once in 11 seconds. `third` is not
/// used; `fourth` must not be null. Returns a connected descriptor, which the caller closes
/// (ZoScheduleJobList() closes its own), or -1.
SCHEDULE_EXPORT int ZoScheduleOpen(const char* host, const char* rootDirectory, const char* third,
                                   const char* fourth);

/// Queues a shell command line. `description` and `directory` may be null; without a directory the
/// server makes a fresh one. The job does not start before a run request. Returns 0 when the server
/// has queued it; -1 when it refused, when the connection is negative or broke, or when the texts
/// cannot be carried and nothing was sent: a double quote, CR or LF in command or description, a
/// double quote or white space in the directory, or more than 1 MiB in all.
SCHEDULE_EXPORT int ZoScheduleJobSubmit(int fd, const char* command, const char* description,
                                        const char* directory);

/// Kills the running job with its whole process tree. Returns 0, or -1 when none was running, one
/// is running still, or the server could not be asked.
SCHEDULE_EXPORT int ZoScheduleJobKill(int fd);

/// Takes the job with this job's `id` and `directory` out of the queue, whatever its state, and
/// deletes its directory with everything in it, a directory given at submission included. A running
/// command is not stopped. Returns 0, or -1 when the server does not know the job or could not be
/// asked.
SCHEDULE_EXPORT int ZoScheduleJobRemove(int fd, UtHandle<ZoJob> job);

/// Starts the job with this job's `id` and `directory`; a null handle starts the waiting jobs one
/// after another. Returns 0 when a job was started, else -1: one is running already, none is
/// waiting, or the server could not be asked.
SCHEDULE_EXPORT int ZoScheduleJobRun(int fd, UtHandle<ZoJob> job);

/// Fills the array with the jobs of the queue, in queue order, and closes fd. The array is emptied
/// first; it is the only holder of the new jobs. Returns their number, 0 also when the server
/// refused; -1, with the array untouched, when fd is negative. When the connection breaks, the jobs
/// that came whole are there.
SCHEDULE_EXPORT int ZoScheduleJobList(int fd, UtDArray<UtHandle<ZoJob>>& jobs);

/// The library's version record: "|key|value|key|value..." with the keys version_tag, comment,
/// compiler, target_os, build_cfg, build_user, build_ip, build_time, filename, path, size, vendor,
/// product, version_major, version_minor, version_patch. The text is constant.
extern "C" SCHEDULE_EXPORT const char* kelvopackage_schedule();

#endif

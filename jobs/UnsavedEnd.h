#ifndef UNSAVEDEND_H
#define UNSAVEDEND_H

#include "jobs/Queue.h"

#include <string>

// Jobs that have ended although the queue says that they run: on a full disk, or in a home
// directory that has become read-only, nobody can write that down. The job child tries again every
// second, and the job's script keeps what it cannot write. Who waits for a job must not wait for
// the disk.

/// Why the queue file in the directory cannot be written now, in a sentence that names it; empty
/// when it can. Leaves no trace.
std::string whyNotWritten(const std::string& directory, const std::string& file);

/// Sets state, end and isUnsaved of the jobs that have ended so. `queue.trouble` must be set.
void readUnsavedEnds(Queue& queue);

#endif

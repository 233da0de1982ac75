#ifndef STATEDIRECTORY_H
#define STATEDIRECTORY_H

#include <string>

// Where the private directories of jobs lie. Those of one user count up: "job-1", "job-2", and the
// number is what people call the job.

/// The directory for them: $XDG_STATE_HOME/zojob, by default ~/.local/state/zojob; one of ours in
/// /var/tmp where that path holds what a request cannot carry. It need not exist.
std::string stateDirectory();

/// Makes the state directory if need be, and in it the next job's directory, mode 0700. No number
/// is given while its directory is there, and not again soon afterwards. Returns the path. Throws
/// JobError.
std::string makeJobDirectory();

/// The number of a job by the path of its directory, "7" of "/home/u/.local/state/zojob/job-7";
/// empty for a directory that is called otherwise.
std::string numberOf(const std::string& directory);

#endif

#ifndef SLURM_H
#define SLURM_H

#include <string>
#include <vector>

/// Slurm, as the engine of jobs that run on a cluster: everything that is Slurm's own stands here.
/// It is shell text, since the job's script must go on without any program of ours, for days and
/// through an upgrade. What it leaves in the job's directory is described in Cluster.h, and so is
/// what another engine would have to provide.
namespace Slurm
{
/// The words of a line of options, split as a shell would do it: blanks, quotes and backslashes,
/// and nothing else. Throws JobError when a quote is open at the end, and for an option that would
/// take the job out of our hands.
std::vector<std::string> splitOptions(const std::string& line);

/// What the job's script reads in first; it also answers tellText() and cancelText().
std::string libraryText();

/// What the job's script does then: hands the job over and stands for it until it has ended, or
/// with `detach` only hands it over.
std::string standText(const std::string& directory, const std::vector<std::string>& options,
                      bool detach);

/// What the cluster's node runs: `command`, a line of shell, in `workDirectory`. The job's name and
/// output come first, so that the `script`'s own lines for sbatch and the options win.
std::string batchText(const std::string& directory, const std::string& name,
                      const std::string& workDirectory, const std::string& command,
                      const std::string& script, const std::vector<std::string>& options);

/// Shell text for directories of jobs as its arguments: asks the cluster what becomes of them, and
/// notes it there; or cancels the one.
std::string tellText();
std::string cancelText();

/// Takes out what an allocation that we are in has set: it is not the new job's.
void leaveAllocation(std::vector<std::string>& environment);

/// Whether the program that hands jobs over is found with this PATH.
bool isHere(const std::vector<std::string>& environment);
}  // namespace Slurm

#endif

#ifndef SLURMSHELL_H
#define SLURMSHELL_H

// The shell text of Slurm.h. POSIX sh, without anything that a node of a cluster may lack; tried
// with dash and with bash as sh.

/// Functions of the job's script, for the machine that the job was submitted on. Whoever uses them
/// has set zojob_d to the job's directory and zojob_c to the directory "cluster" in it.
extern const char* const SLURM_LIBRARY;

/// Around the command in what the cluster's node runs, with the same two variables.
extern const char* const SLURM_BATCH_START;
extern const char* const SLURM_BATCH_END;

#endif

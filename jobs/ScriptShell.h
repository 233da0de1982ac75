#ifndef SCRIPTSHELL_H
#define SCRIPTSHELL_H

// The part of a job's script that is the same for all jobs: shell text, since a job must run
// without any program of ours, whatever has become of the installation meanwhile. POSIX sh.

/// Functions. Before them the script has set these variables:
///
///  - zj_d, zj_n: the job's directory and its number
///  - zj_dir, zj_mask: where the command runs, and its umask
///  - zj_nice, zj_time, zj_retry: niceness, seconds (both can be empty), how often again
///  - zj_then, zj_done: a line of shell or empty; a program that need not exist
///  - zj_name, zj_label: what the job is called in lists, and its label
///
/// and the positional parameters are the entries of the job's environment.
extern const char* const SCRIPT_LIBRARY;

/// What comes after the functions zj_limits (soft limits), zj_conditions (calls of zj_after) and
/// zj_command (the command, which replaces the shell).
extern const char* const SCRIPT_MAIN;

#endif

#ifndef WATCH_H
#define WATCH_H

#include "jobs/Server.h"
#include "zojob/Options.h"
#include "zojob/view/Listed.h"

#include <string>
#include <vector>

// What `list` has in common with `list --watch`.

/// The jobs that the options ask for.
std::vector<Listed> selectJobs(const std::vector<Listed>& all, const Options& options);

/// What stands behind a list: how many jobs are in which state, and what to do where none runs or
/// the queue is in trouble (see Queue.h), in lines of so many columns.
std::vector<std::string> summary(const std::vector<Listed>& all, const std::string& trouble,
                                 std::size_t columns);

/// Writes some of all jobs as a table, and the line behind it.
void printList(const std::vector<Listed>& jobs, const std::vector<Listed>& all,
               const std::string& trouble, const Options& options);

/// Lists again at each change, and when the time is over in which running times grow unseen; on a
/// terminal on one screen, until somebody types "q".
int watchList(const Server& server, const Options& options);

#endif

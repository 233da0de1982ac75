#ifndef JSON_H
#define JSON_H

#include "jobs/Queue.h"

#include <string>
#include <vector>

// Each writes one JSON document to standard output. Bytes that are no UTF-8 become U+FFFD; times
// are seconds since the epoch, null for what has not happened.

/// The jobs with their names; `more` adds the script and the path of the output.
void writeJsonList(const std::vector<Job>& jobs, const std::vector<std::string>& names,
                   bool more = false);

/// One job.
void writeJsonJob(const Job& job, const std::string& name, bool more);

/// `server` is "running", "none", "refused" or "silent".
void writeJsonStatus(const char* server, const std::string& host, const Queue& queue);

#endif

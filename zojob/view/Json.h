#ifndef JSON_H
#define JSON_H

#include "zojob/view/Listed.h"

#include <string>
#include <vector>

// Each writes one JSON document to standard output. Bytes that are no UTF-8 become U+FFFD; times
// are seconds since the epoch, null for what has not happened.

/// The jobs as an array.
void writeJsonList(const std::vector<Listed>& jobs);

/// The same, but a single job as an object; with their scripts, which hold their environment, where
/// that is asked for.
void writeJsonJobs(const std::vector<Listed>& jobs, bool withScript);

/// `server` is "running", "none", "refused" or "silent"; `otherUser`, unless it is negative, is the
/// user whose server has the port.
void writeJsonStatus(const char* server, const std::string& host, long long otherUser,
                     const std::string& otherName, const std::vector<Listed>& jobs);

#endif

#ifndef JSON_H
#define JSON_H

#include "jobs/QueueFile.h"
#include "zojob/view/Listed.h"

#include <string>
#include <vector>

// Each writes one JSON document to standard output. Bytes that are no UTF-8 become U+FFFD; times
// are seconds since the epoch, null for what has not happened.

// `otherUser`, unless it is negative, is the user whose server has the port.

/// The jobs as an array.
void writeJsonList(const std::vector<Listed>& jobs, long long otherUser);

/// The same, but a single job as an object; with their scripts, which hold their environment, where
/// that is asked for.
void writeJsonJobs(const std::vector<Listed>& jobs, long long otherUser, bool withScript);

/// What stands in place of the document of a command that has failed.
void writeJsonFailure(const std::string& error, int code, long long otherUser);

/// What `status` tells.
struct StatusView {
    std::string server;  ///< "running", "none", "refused" or "silent"
    std::string host;    ///< empty: this machine
    long long otherUser;
    std::string trouble;             ///< why the queue cannot be written; empty when it can
    std::vector<OtherQueue> others;  ///< of this user in the same directory
    std::vector<Listed> jobs;
};
void writeJsonStatus(const StatusView& view);

#endif

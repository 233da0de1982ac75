#ifndef NEWJOBDIRECTORY_H
#define NEWJOBDIRECTORY_H

#include <string>
#include <vector>

/// The private directory that a submission makes for its job. It disappears with the object unless
/// `keep` has been set: a submission that fails leaves nothing behind.
class NewJobDirectory
{
public:
    const std::string path;
    bool keep = false;

    /// Makes the next directory (see StateDirectory.h). With `itSyncs` false the caller brings
    /// everything onto the disk, once for many. Throws JobError.
    explicit NewJobDirectory(bool itSyncs = true);
    ~NewJobDirectory();
    NewJobDirectory(const NewJobDirectory&) = delete;
    NewJobDirectory& operator=(const NewJobDirectory&) = delete;

    /// Makes a directory in it that only this user can use. Throws JobError.
    void makeDirectory(const std::string& name);

    /// Makes a file in it that only this user can read and run. A caller that wants an error in
    /// place of its end where a limit on file sizes is passed ignores SIGXFSZ. Throws JobError.
    void writeFile(const std::string& name, const std::string& text);

    /// Brings everything onto the disk, before a request names it. Returns the command for that
    /// request: it runs the file "job" if all files are as they were written, and otherwise says so
    /// and ends with 125. Throws JobError.
    std::string finish() const;

private:
    const bool syncsEach;
    std::vector<std::string> directories;  // in it, by their whole paths
    std::string files;                     // the names, each behind a blank
    unsigned sum = 0;                      // of their contents, as the command cksum begins it
    unsigned long long length = 0;         // of them all
};

#endif

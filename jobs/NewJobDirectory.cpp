#include "jobs/NewJobDirectory.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/StateDirectory.h"
#include "schedule/ZoDisk.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

static const char* const DAMAGED = "zojob: this job is damaged, as by a power cut: nothing was run";
static const char* const STATUS = "125";  // of a job that was not run
static const int MODE = 0700;

NewJobDirectory::NewJobDirectory(bool itSyncs) : path(makeJobDirectory()), syncsEach(itSyncs)
{
}

NewJobDirectory::~NewJobDirectory()
{
    std::error_code ignored;  // there is nobody left to tell
    if (!keep)
        std::filesystem::remove_all(path, ignored);
}

static JobError notMade(const std::string& name)
{
    return JobError(JobError::FILE_FAILED,
                    withReason("nothing was submitted, cannot write " + name) +
                        "; make room, or set XDG_STATE_HOME");
}

void NewJobDirectory::makeDirectory(const std::string& name)
{
    directories.push_back(path + "/" + name);
    const char* const directory = directories.back().c_str();
    if (::mkdir(directory, MODE) != 0 || ::chmod(directory, MODE) != 0)
        throw notMade(directory);
}

/// For each byte, what it adds to the sum that the command cksum computes.
static std::array<unsigned, 256> makeTable()
{
    std::array<unsigned, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        table[byte] = byte << 24;
        for (int bit = 0; bit < 8; ++bit)
            table[byte] = table[byte] << 1 ^ (table[byte] >> 31 ? 0x04c11db7 : 0);
    }
    return table;
}

/// One more byte in that sum.
static unsigned sumWith(unsigned sum, unsigned char byte)
{
    static const std::array<unsigned, 256> table = makeTable();
    return sum << 8 ^ table[sum >> 24 ^ byte];
}

void NewJobDirectory::writeFile(const std::string& name, const std::string& text)
{
    const std::string file = path + "/" + name;
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, MODE);
    const bool isWritten = fd >= 0 && ::fchmod(fd, MODE) == 0 &&
                           ZoDisk::write(fd, text.data(), (long)text.size()) == 0 &&
                           (!syncsEach || ZoDisk::sync(fd) == 0);
    const int reason = errno;
    const bool isClosed = fd >= 0 && ::close(fd) == 0;
    if (!isWritten)
        errno = reason;
    if (!isWritten || !isClosed)
        throw notMade(file);
    files += " " + name;
    length += text.size();
    for (const char byte : text)
        sum = sumWith(sum, (unsigned char)byte);
}

std::string NewJobDirectory::finish() const
{
    for (const std::string& directory : directories)
        if (syncsEach && ZoDisk::syncPath(directory.c_str()) != 0)
            throw notMade(directory);
    if (syncsEach && (ZoDisk::syncPath(path.c_str()) != 0 || ZoDisk::syncParent(path.c_str()) != 0))
        throw notMade(path);
    unsigned all = sum;
    for (unsigned long long rest = length; rest > 0; rest >>= 8)
        all = sumWith(all, (unsigned char)rest);
    // Read before it is run: a shell reads piece by piece, and would run what is left of a script.
    return "cat" + files + " | cksum | grep -qx '" + std::to_string(~all) + " " +
           std::to_string(length) + "' || { echo '" + DAMAGED + "' >&2; echo " + STATUS +
           " >exit; exit; }; " + JobDirectory::COMMAND;
}

#ifndef UTTMPDIR_H
#define UTTMPDIR_H

#include "utlib/UtString.h"

/// A directory named by its path, which is the text of this string: empty until create() has
/// succeeded, free to be read and assigned.
class UTLIB_EXPORT UtTmpDir : public UtString
{
public:
    /// Touches no file. `removeAtEnd`: the destructor removes the directory. `keepName`: create()
    /// uses the name as it stands instead of making it unique.
    UtTmpDir(const char* name, bool removeAtEnd, bool keepName);
    UtTmpDir(const UtTmpDir&) = delete;
    UtTmpDir& operator=(const UtTmpDir&) = delete;
    ~UtTmpDir() override;

    using UtString::operator=;

    /// Makes a new directory with exactly these permission bits and sets the path. It lies in
    /// $TMPDIR, if that is an absolute path without white space in which directories can be made,
    /// else in /var/tmp, which outlives a restart of the machine, else in /tmp. Returns 0, or -1
    /// with errno set and an empty path.
    int create(int mode);

    /// Deletes the directory with everything in it. Symbolic links are deleted, never followed. An
    /// empty path and "/" are left alone. Returns 0 when nothing is left, else -1 with errno set.
    int remove();

private:
    UtString name;
    bool removeAtEnd;
    bool keepName;

    int createIn(const char* place, int mode);
};

#endif

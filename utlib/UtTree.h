#ifndef UTTREE_H
#define UTTREE_H

#include "utlib/UtString.h"

#include <sys/types.h>

/// Deletes one directory tree. It holds the tree by an open descriptor, so that whoever may write
/// to a directory above it cannot put another directory, or a link, in its place. Symbolic links
/// are deleted, never followed; what is mounted inside the tree is neither entered nor deleted. The
/// depth of the tree does not matter to the limit of descriptors.
class UTLIB_EXPORT UtTree
{
public:
    enum { GONE = 0, FAILED = -1, LATE = 1 };

    int directory = -1;  ///< the open directory; negative when there is none

    /// Opens the directory of that path; a link to one, which the path's last part names, is not
    /// taken. `directory` is negative, with errno set, when that fails.
    explicit UtTree(const char* path);
    UtTree(const UtTree&) = delete;
    UtTree& operator=(const UtTree&) = delete;
    /// Closes the descriptor.
    ~UtTree();

    /// Names a directory, with all that hold it, that must not be deleted, whatever path leads
    /// there; links are followed. One that cannot be opened is nowhere in the way.
    void keep(const char* path);

    /// Whether the tree is the root of the file system, or one of the directories to keep.
    bool isKept() const;

    /// Deletes the tree, for at most so many milliseconds; -1 takes as long as it takes. Returns
    /// GONE; LATE when the time was over; FAILED with errno set when something had to stay.
    int remove(long long milliseconds);

    /// Gives the directory another name beside its own, under which nobody looks for it: hidden,
    /// with a number that is free. Returns 0 or -1.
    int rename();

private:
    /// What tells a directory from all others.
    struct Identity {
        dev_t device;
        ino_t node;
    };

    UtString name;              ///< the last part of its path; empty where that is "." or ".."
    UtDArray<Identity> kept;    ///< neither deleted nor entered
    long long deadline = -1;    ///< of the present remove(), in milliseconds; -1: none
    unsigned long renamed = 0;  ///< directories that were moved up, so far

    bool holds(int fd) const;
    bool isLate() const;
    int removeEntry(int parent, const char* entry, int depth);
    int removeContents(int fd, int depth);
    int moveUp(int parent, const char* entry);
};

#endif

#ifndef CARRY_H
#define CARRY_H

#include <string>
#include <vector>

/// The floor of every change of the queue: no more than the system calls that it needs. The buffer
/// is as large as the file.
class Carry
{
public:
    /// For a queue of this many jobs, in a file of its own.
    explicit Carry(long count);

    /// Reads the file, looks every marker up once, writes the file anew. Returns whether all of it
    /// succeeded.
    bool once();

private:
    std::string file;
    std::string buffer;
    std::vector<std::string> markers;
};

#endif

#ifndef UTLINEREADER_H
#define UTLINEREADER_H

#include "utlib/UtSocket.h"
#include "utlib/UtString.h"

/// Reads one connection line by line to its end. Takes whatever has come, also what lies behind the
/// line: for a connection from which nobody else reads, now or later. Many lines then cost one
/// system call, where UtSocket::readLine() needs two for each.
class UTLIB_EXPORT UtLineReader
{
public:
    enum {
        /// Bytes in the longest line. What came in one of UtSocket::MAX_LINE may go out with more
        /// around it.
        MAX_LINE = 2 * UtSocket::MAX_LINE,
        MAX_BYTES = 1024 * 1024 * 1024  ///< in all lines together
    };

    /// The descriptor stays the caller's. All that is read must come within its receive limit from
    /// now on: a peer that sends a byte now and then does not make it longer.
    explicit UtLineReader(int fd);
    UtLineReader(const UtLineReader&) = delete;
    UtLineReader& operator=(const UtLineReader&) = delete;
    ~UtLineReader();

    /// Reads the next line with the results of UtSocket::readLine(), but lines up to MAX_LINE, and
    /// MAX_BYTES in all.
    int readLine(UtString& line);

private:
    int descriptor;
    long long deadline;    ///< of UtClock; -1: none
    long long taken = 0;   ///< bytes received so far
    UtDArray<char> piece;  ///< what came last
    long stored = 0;       ///< bytes in the piece
    long position = 0;     ///< of the first byte in it that is not handed out

    int takeLine(UtString& line, bool* isWhole);
};

#endif

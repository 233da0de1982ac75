#ifndef UTSOCKET_H
#define UTSOCKET_H

#include "utlib/UtString.h"

/// TCP connections and the lines on them. All descriptors are close-on-exec. Interrupted system
/// calls are repeated, short transfers go on, and no call raises SIGPIPE.
///
/// Waiting is bounded by the descriptor's own time limits, its SO_RCVTIMEO and SO_SNDTIMEO,
/// whether it is blocking or not; a limit of 0 waits without end. Pipes, terminals and files can be
/// read and written too; they carry no limits.
class UTLIB_EXPORT UtSocket
{
public:
    enum {
        MAX_LINE = 1024 * 1024,  ///< bytes in the longest line that readLine() takes
        CONNECT_SECONDS = 10,    ///< for all addresses of a host together
        LINE_END_SECONDS = 2,    ///< that receive() waits for a line end, after the first bytes
        CLIENT_SECONDS = 60      ///< time limits of a connection made here
    };

    /// Connects to a port of a host, given by name or address; null is this machine's loopback
    /// address. Tries every address of the host, 10 seconds in all. Returns a blocking descriptor
    /// that the caller closes, or -1.
    static int connect(const char* host, int port);

    /// Writes the whole formatted text, on a non-blocking descriptor too. Returns 0, or -1 when the
    /// peer has gone or took nothing for as long as the send limit; some of it may then be sent.
    static int send(int fd, const char* format, ...) UT_PRINTF(2, 3);

    /// Reads one line and stores it without its "\n"; nothing behind the "\n" is consumed. Returns
    /// the bytes consumed, 1 or more; 0 when the connection ended before a line end; -1 on an
    /// error, a NUL byte, a line over MAX_LINE, or when the whole line has not come within the
    /// receive limit. The line is empty unless one was read. A pipe or terminal, which cannot be
    /// looked into, is read byte by byte.
    static int readLine(int fd, UtString& line);

    /// Reads at most size bytes into the buffer, without a terminator. Waits for the first bytes
    /// for as long as the receive limit. With wholeLine 0 it returns with these; with 1 when what
    /// has come ends in a line end, the buffer is full, the peer has closed, or LINE_END_SECONDS
    /// have passed. Returns the bytes stored, 0 at the end of the connection, -1 on an error or
    /// when nothing has come within the receive limit.
    static int receive(int fd, char* buffer, int size, int wholeLine);

    /// Ends the sending direction and takes away what comes, until the peer has ended its sending
    /// too, or so many milliseconds or bytes have passed; with 0 milliseconds, what has come by
    /// now. Closing on unread data would reset the connection, and the peer could lose what was
    /// sent to it last.
    static void drain(int fd, int milliseconds, long bytes);

    /// receive() with wholeLine 0, but it waits until a point of time of UtClock, -1 for ever.
    static int receiveUntil(int fd, char* buffer, int size, long long deadline);

    /// When a wait for data that begins now ends, by the descriptor's receive limit: a point of
    /// time of UtClock, or -1 for never.
    static long long receiveDeadline(int fd);

    /// Closes the descriptor and nothing else: a connection that another process shares stays open.
    static void close(int fd);

    /// Puts the descriptor into non-blocking mode. Returns 0 or -1.
    static int nonBlocking(int fd);

    /// Puts the descriptor into blocking mode. Returns 0 or -1.
    static int blocking(int fd);

    /// Sets both time limits, in whole seconds. Returns 0 or -1.
    static int setTimeLimits(int fd, int seconds);
};

#endif

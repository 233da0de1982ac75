#ifndef UTSERVERSOCKET_H
#define UTSERVERSOCKET_H

#include "utlib/UtExport.h"

/// A listening TCP socket, reachable under every IPv4 address of this machine.
class UTLIB_EXPORT UtServerSocket
{
public:
    int port = -1;                 ///< the port listened on; negative unless opening succeeded
    int descriptor = -1;           ///< the listening socket; negative unless opening succeeded
    int secondsPerConnection = 0;  ///< openSocket()'s `timeout`; holds for what is accepted next

    /// With reuseAddress 1 a port can be taken again at once after its last server has gone; a port
    /// that somebody listens on is never shared.
    explicit UtServerSocket(int reuseAddress);
    UtServerSocket(const UtServerSocket&) = delete;
    UtServerSocket& operator=(const UtServerSocket&) = delete;
    /// Closes the socket.
    ~UtServerSocket();

    /// Listens on a port; 0 takes any free one. A negative backlog is the system's maximum.
    /// `timeout`: seconds that one connection may hold the server, for the whole of its request
    /// line, and without progress while a reply is sent. Returns 0, or -1 with both fields
    /// negative; a descriptor that select() cannot hold is a failure too.
    int openSocket(int requestedPort, int backlog, int timeout);

    /// Makes accept() wait for a connection. Returns 0 or -1.
    int blocking();

    /// Accepts one connection. Returns its descriptor, which the caller closes; or a negative value
    /// with errno set: EAGAIN when nothing was pending or only this connection failed; anything
    /// else, out of descriptors or memory too, is for the caller to end on.
    int accept();

private:
    int reuseAddress;
};

#endif

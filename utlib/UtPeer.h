#ifndef UTPEER_H
#define UTPEER_H

#include "utlib/UtExport.h"

/// Whose socket is at the other end of a TCP connection, IPv4 or IPv6. A peer on this machine can
/// so be known by the kernel's word instead of its own.
class UTLIB_EXPORT UtPeer
{
public:
    enum {
        ANOTHER_MACHINE = -1,  ///< the peer's address is none of this machine's
        NOBODY = -2,           ///< it is, but the other end is in no process's hands any more
        UNKNOWN = -3,          ///< it is, but this kernel or this process's sandbox has no lookup
        FAILED = -4            ///< memory or descriptors ran out, or the like; errno is set
    };

    /// Returns the user id of the socket at the other end, 0 or more, or one of the codes above.
    /// Never waits for the peer. NOBODY and FAILED must refuse: a peer that leaves after sending,
    /// or that uses up our descriptors, would otherwise be judged by what it says.
    ///
    /// A peer that has ended only its own sending still has its user. One behind an address
    /// translation on this machine, or bound to a single network device, is NOBODY. With the sysctl
    /// ip_nonlocal_bind every address counts as this machine's. Users whom our user namespace does
    /// not map all show as its overflow user, 65534.
    static long long userOf(int fd);

    /// The same for the side that has connected. A connection that nobody has accepted yet is in
    /// the hands of the listener, whose user is returned; NOBODY also when it has broken meanwhile.
    /// Ask before anything is sent: whoever takes the port from a listener gets none of its
    /// connections.
    static long long serverOf(int fd);

    /// Returns the user who listens where a connection to the loopback address and this port would
    /// go, NOBODY when nobody does, UNKNOWN or FAILED. Makes no connection, so that a listener that
    /// never accepts costs no wait.
    static long long listenerOf(int port);
};

#endif

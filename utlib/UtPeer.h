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
        NOBODY = -2,           ///< it is, but no living socket is at the other end any more
        UNKNOWN = -3,          ///< it is, but this kernel, or the sandbox we are in, has no lookup
        FAILED = -4            ///< could not be looked up this time, errno tells why: out of memory
    };

    /// Returns the user id of the socket at the other end, 0 or more, or one of the codes above.
    /// Never waits. Only a user id and, if names are trusted there, UNKNOWN and ANOTHER_MACHINE can
    /// let a peer in; the others refuse it: a peer that left or that used up our descriptors must
    /// not pass for a better one.
    ///
    /// A peer that has only ended its own sending still has its socket and its user. Behind an
    /// address translation, or bound to one network device, a peer on this machine is NOBODY. With
    /// the sysctl ip_nonlocal_bind every address counts as this machine's. Inside a user namespace
    /// all users that it does not map show as the overflow user, 65534.
    static long long userOf(int fd);
};

#endif

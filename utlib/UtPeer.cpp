#include "utlib/UtPeer.h"

#include <cerrno>
#include <cstring>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

/// The port and address of one end. IPv4 addresses are held as mapped into IPv6, the form in which
/// an IPv6 socket shows an IPv4 connection: one end has one form.
struct UtPeerEnd {
    in6_addr address = {};
    in_port_t port = 0;
    unsigned device = 0;  ///< of a link-local address, which means nothing without it; else 0

    bool isIpv4() const { return IN6_IS_ADDR_V4MAPPED(&address); }
    bool equals(const UtPeerEnd& other) const
    {
        return port == other.port && ::memcmp(&address, &other.address, sizeof address) == 0;
    }
};

/// A question to the kernel, as it goes over the netlink socket.
struct UtPeerQuestion {
    nlmsghdr header = {};
    inet_diag_req_v2 body = {};
};

/// What comes back: a socket's row, an error, or the status that ends a list.
union UtPeerAnswer {
    struct {
        nlmsghdr header;
        union {
            inet_diag_msg row;
            int status;  ///< a negated errno, or 0
        };
    } message;
    char space[4096];  // rows have attributes behind them, errors the question
};

static UtPeerEnd endFrom(int family, const void* address, in_port_t port)
{
    UtPeerEnd end;
    end.port = port;
    if (family == AF_INET6) {
        ::memcpy(&end.address, address, sizeof end.address);
        return end;
    }
    end.address.s6_addr[10] = end.address.s6_addr[11] = 0xff;
    ::memcpy(&end.address.s6_addr[12], address, sizeof(in_addr));
    return end;
}

typedef int (*UtPeerNameCall)(int, struct sockaddr*, socklen_t*);

/// Reads one end of a connection with getsockname() or getpeername(). Returns 0, or -1 when fd is
/// no IP connection or has lost its peer.
static int readEnd(UtPeerNameCall nameCall, int fd, UtPeerEnd& end)
{
    union {
        sockaddr any;
        sockaddr_in ipv4;
        sockaddr_in6 ipv6;
        sockaddr_storage space;
    } name = {};
    socklen_t size = sizeof name;
    if (nameCall(fd, &name.any, &size) != 0)
        return -1;
    if (name.any.sa_family == AF_INET) {
        end = endFrom(AF_INET, &name.ipv4.sin_addr, name.ipv4.sin_port);
        return 0;
    }
    if (name.any.sa_family != AF_INET6)
        return -1;
    end = endFrom(AF_INET6, &name.ipv6.sin6_addr, name.ipv6.sin6_port);
    end.device = name.ipv6.sin6_scope_id;
    return 0;
}

/// Binds fd to the end's address and any free port. Returns like bind().
static int bindTo(int fd, const UtPeerEnd& end)
{
    sockaddr_in ipv4 = {};
    sockaddr_in6 ipv6 = {};
    if (end.isIpv4()) {
        ipv4.sin_family = AF_INET;
        ::memcpy(&ipv4.sin_addr, &end.address.s6_addr[12], sizeof ipv4.sin_addr);
        return ::bind(fd, (const sockaddr*)&ipv4, sizeof ipv4);
    }
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_addr = end.address;
    ipv6.sin6_scope_id = end.device;
    return ::bind(fd, (const sockaddr*)&ipv6, sizeof ipv6);
}

/// Tells whether the end's address is one of this machine's. Returns 1 or 0, or -1 with errno set.
static int isOurs(const UtPeerEnd& end)
{
    if (end.isIpv4() && end.address.s6_addr[12] == IN_LOOPBACKNET)
        return 1;
    const int fd = ::socket(end.isIpv4() ? AF_INET : AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    // The address is judged before a port is looked for, so that no other error means "not ours".
    const bool elsewhere = bindTo(fd, end) != 0 && errno == EADDRNOTAVAIL;
    ::close(fd);
    return elsewhere ? 0 : 1;
}

/// Names the socket whose own end is `own` and whose other end is `other`.
static void setSocket(inet_diag_sockid& id, const UtPeerEnd& own, const UtPeerEnd& other)
{
    const int skip = own.isIpv4() ? 12 : 0;
    const size_t size = sizeof(in6_addr) - skip;
    id.idiag_sport = own.port;
    id.idiag_dport = other.port;
    ::memcpy(id.idiag_src, &own.address.s6_addr[skip], size);
    ::memcpy(id.idiag_dst, &other.address.s6_addr[skip], size);
    id.idiag_if = own.device;
    id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
}

/// Sends a question and reads the first message of the answer, which the kernel has ready when
/// send() returns. Returns its size, or -1 with errno set.
static long exchange(int netlink, const UtPeerQuestion& question, UtPeerAnswer& answer)
{
    long n;
    do
        n = ::send(netlink, &question, sizeof question, MSG_DONTWAIT);
    while (n < 0 && errno == EINTR);
    if (n < 0)
        return -1;
    do
        n = ::recv(netlink, &answer, sizeof answer, MSG_DONTWAIT | MSG_TRUNC);
    while (n < 0 && errno == EINTR);
    return n;
}

/// Asks about a socket. Returns 0 when the answer is a row or the end of a list, else an errno
/// code.
static int ask(int netlink, UtPeerQuestion& question, UtPeerAnswer& answer)
{
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags |= NLM_F_REQUEST;
    ++question.header.nlmsg_seq;
    const long n = exchange(netlink, question, answer);
    if (n < 0)
        return errno;
    const nlmsghdr& header = answer.message.header;
    const bool isRow = header.nlmsg_type == SOCK_DIAG_BY_FAMILY;
    const long needed = NLMSG_HDRLEN + (isRow ? sizeof answer.message.row : sizeof(int));
    if (n < needed || n > (long)sizeof answer || header.nlmsg_len < needed ||
        header.nlmsg_seq != question.header.nlmsg_seq)
        return EBADMSG;
    if (isRow)
        return 0;
    if (header.nlmsg_type != NLMSG_ERROR && header.nlmsg_type != NLMSG_DONE)
        return EBADMSG;
    return -answer.message.status;
}

/// The user whose socket a row shows, provided that it is the socket asked for, is in somebody's
/// hands and has ended no more than its own sending.
static long long ownerIn(const inet_diag_msg& row, const UtPeerEnd& peer, const UtPeerEnd& own)
{
    // Without a connection on these ports the kernel shows a socket that listens on the first.
    if (!endFrom(row.idiag_family, row.id.idiag_src, row.id.idiag_sport).equals(peer) ||
        !endFrom(row.idiag_family, row.id.idiag_dst, row.id.idiag_dport).equals(own))
        return UtPeer::NOBODY;
    // A connection in the making on the same ports is not the one that reached us.
    if (row.idiag_state != TCP_ESTABLISHED && row.idiag_state != TCP_FIN_WAIT1 &&
        row.idiag_state != TCP_FIN_WAIT2)
        return UtPeer::NOBODY;
    // A closed socket lives on for a while without an inode, and may then show user 0.
    return row.idiag_inode ? (long long)row.idiag_uid : (long long)UtPeer::NOBODY;
}

/// The user whose socket listens at `peer`, by a row that shows no connection.
static long long listenerIn(const inet_diag_msg& row, const UtPeerEnd& peer)
{
    const bool listens = row.idiag_state == TCP_LISTEN && row.id.idiag_sport == peer.port;
    return listens && row.idiag_inode ? (long long)row.idiag_uid : (long long)UtPeer::NOBODY;
}

/// Whether a row shows the connection before somebody has accepted it: in the making, or complete
/// and in nobody's hands.
static bool isWaiting(const inet_diag_msg& row, const UtPeerEnd& peer, const UtPeerEnd& own)
{
    return endFrom(row.idiag_family, row.id.idiag_src, row.id.idiag_sport).equals(peer) &&
           endFrom(row.idiag_family, row.id.idiag_dst, row.id.idiag_dport).equals(own) &&
           (row.idiag_state == TCP_SYN_RECV ||
            (row.idiag_state == TCP_ESTABLISHED && row.idiag_inode == 0));
}

/// Tells whether an error means that there is no lookup here at all, today or tomorrow.
static bool isMissing(int error)
{
    return error == EPROTONOSUPPORT || error == EAFNOSUPPORT || error == EOPNOTSUPP ||
           error == ENOSYS || error == ECONNREFUSED || error == EPERM || error == EACCES;
}

/// Asks for one socket, the row's being in `answer` then. Returns 0, or an errno code: ENOENT when
/// there is no such socket.
static int askForRow(int netlink, const UtPeerEnd& peer, const UtPeerEnd& own, UtPeerAnswer& answer)
{
    UtPeerQuestion question;
    question.body.sdiag_protocol = IPPROTO_TCP;
    question.body.sdiag_family = peer.isIpv4() ? AF_INET : AF_INET6;
    setSocket(question.body.id, peer, own);
    const int error = ask(netlink, question, answer);
    if (error == 0)
        return answer.message.header.nlmsg_type == SOCK_DIAG_BY_FAMILY ? 0 : EBADMSG;
    if (error != ENOENT)
        return error;
    // No such socket, or nothing in this kernel that knows TCP's sockets? Only the latter refuses
    // to list those in none of the states, too.
    question.header.nlmsg_flags = NLM_F_DUMP;
    const int listError = ask(netlink, question, answer);
    return listError == 0 ? ENOENT : listError == ENOENT ? EOPNOTSUPP : listError;
}

/// Asks who is to accept the connection that the row in `answer` shows waiting. Returns like
/// lookUp().
static int lookUpListener(int netlink, const UtPeerEnd& peer, const UtPeerEnd& own,
                          UtPeerAnswer& answer, long long& user)
{
    UtPeerEnd anywhere = own;
    anywhere.port = 0;  // nobody connects from there: the row is that of the listener
    int error = askForRow(netlink, peer, anywhere, answer);
    const long long listener =
        error == 0 ? listenerIn(answer.message.row, peer) : (long long)UtPeer::NOBODY;
    // Connections do not outlive the listener that they wait for: one that still waits has had the
    // same all the time. One that was accepted meanwhile tells its user itself.
    error = error == 0 ? askForRow(netlink, peer, own, answer) : error;
    if (error == 0)
        user = isWaiting(answer.message.row, peer, own) ? listener
                                                        : ownerIn(answer.message.row, peer, own);
    return error;
}

/// Asks for the peer's socket. Returns 0 with `user` set, or an errno code.
static int lookUp(int netlink, const UtPeerEnd& peer, const UtPeerEnd& own, bool mayWait,
                  long long& user)
{
    UtPeerAnswer answer = {};
    int error = askForRow(netlink, peer, own, answer);
    if (error == 0 && mayWait && isWaiting(answer.message.row, peer, own))
        error = lookUpListener(netlink, peer, own, answer, user);
    else if (error == 0)
        user = ownerIn(answer.message.row, peer, own);
    if (error == ENOENT)
        user = UtPeer::NOBODY;
    return error == ENOENT ? 0 : error;
}

/// Tells whether the connection still stands: at most the peer has ended its sending.
static bool hasPeer(int fd)
{
    tcp_info info = {};
    socklen_t size = sizeof info;
    return ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
           (info.tcpi_state == TCP_ESTABLISHED || info.tcpi_state == TCP_CLOSE_WAIT);
}

/// UtPeer::userOf(), or UtPeer::serverOf() when the connection may wait to be accepted.
static long long userAtOtherEnd(int fd, bool mayWait)
{
    UtPeerEnd peer, own;
    if (readEnd(::getpeername, fd, peer) != 0 || readEnd(::getsockname, fd, own) != 0)
        return UtPeer::NOBODY;
    const int ours = isOurs(peer);
    if (ours <= 0)
        return ours == 0 ? UtPeer::ANOTHER_MACHINE : UtPeer::FAILED;

    long long user = UtPeer::FAILED;
    const int netlink = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    const int error = netlink < 0 ? errno : lookUp(netlink, peer, own, mayWait, user);
    if (netlink >= 0)
        ::close(netlink);
    if (error != 0) {
        errno = error;
        return isMissing(error) ? UtPeer::UNKNOWN : UtPeer::FAILED;
    }
    // If the peer left meanwhile, the socket found may be a later one on the same port. While the
    // connection stands, no other can have taken its place.
    return hasPeer(fd) ? user : (long long)UtPeer::NOBODY;
}

long long UtPeer::userOf(int fd)
{
    return userAtOtherEnd(fd, false);
}

long long UtPeer::serverOf(int fd)
{
    return userAtOtherEnd(fd, true);
}

long long UtPeer::listenerOf(int port)
{
    const in_addr loopback = { htonl(INADDR_LOOPBACK) };
    const UtPeerEnd listening = endFrom(AF_INET, &loopback, htons((in_port_t)port));
    const UtPeerEnd anywhere = endFrom(AF_INET, &loopback, 0);
    const int netlink = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    UtPeerAnswer answer = {};
    const int error = netlink < 0 ? errno : askForRow(netlink, listening, anywhere, answer);
    if (netlink >= 0)
        ::close(netlink);
    if (error == 0)
        return listenerIn(answer.message.row, listening);
    errno = error;
    return error == ENOENT ? NOBODY : isMissing(error) ? UNKNOWN : FAILED;
}

#ifndef ZOCLIENT_H
#define ZOCLIENT_H

#include "schedule/ZoExport.h"
#include "schedule/ZoProtocol.h"
#include "utlib/UtDArray.h"

/// Talks to the job server of one machine. Each request makes a connection of its own; afterwards
/// `presence` tells who was there. Prints nothing.
///
///     ZoClient client(nullptr, "/opt/kelvo");
///     if (client.ask(ZoProtocol::RUN) != ZoProtocol::REPLY_OK && client.presence == ...
class SCHEDULE_EXPORT ZoClient
{
public:
    enum Presence {
        NONE,      ///< nobody accepts connections there
        OURS,      ///< a server that serves this user
        REFUSING,  ///< another user's listener, or a server that says "error"
        SILENT     ///< accepts connections, and gives no reply, or none that a server gives
    };

    enum {
        SECONDS_TO_NOTICE = 3,  ///< without a reply, until onSilence is called
        MAX_JOBS = 2000000,     ///< in a list; more is no list, but an attack on our memory
        NOBODY = -1,            ///< result of connect(): no connection could be made
        STRANGER = -2,          ///< result of connect(): another user is at the other end
        SECONDS_TO_START = 10   ///< that a started server has to accept connections, besides the
                                ///< time that it takes to look up the name of the machine
    };

    /// Called when a server has taken a request and not begun to answer for SECONDS_TO_NOTICE;
    /// null: nobody is told. A program sets it once.
    static void (*onSilence)();

    UtString user;  ///< the first word of every request
    UtString host;  ///< empty: this machine
    UtString root;  ///< whose "bin/start" is run when nobody answers on this machine; empty: none
    int port;
    int secondsToReply;        ///< limit of time for each wait on a connection
    Presence presence = NONE;  ///< what the last request has found
    long long otherUser = -1;  ///< user id at the other end when REFUSING; -1 when not known
    int launcherStatus = -1;   ///< exit status of a launcher that was run in vain; else -1

    /// This user, and the port of portOfUser(). Null texts are empty.
    explicit ZoClient(const char* givenHost = nullptr, const char* givenRoot = nullptr);
    ZoClient(const ZoClient&) = delete;
    ZoClient& operator=(const ZoClient&) = delete;
    ~ZoClient();

    /// The port that this user has chosen with the variable JOB_PORT, else the usual one.
    static int portOfUser();

    /// The value of JOB_PORT when it is none of 1 to 65535, so that the usual port is used; else
    /// null. For a program to complain about.
    static const char* wrongPort();

    /// Whether a listener of this user may be taken for the server: this user's or root's.
    static bool isTrusted(long long owner);

    /// Sends a request without arguments, or with the name of a job. NO_REPLY also when the name
    /// cannot be carried and nothing was sent.
    ZoProtocol::Reply ask(ZoProtocol::Request request, const ZoJob* job = nullptr);

    /// Queues a job. NO_REPLY also when the texts cannot be carried and nothing was sent.
    ZoProtocol::Reply submit(const char* command, const char* description, const char* directory);

    /// Fills the array with the jobs of the queue. Returns 0 when the whole list has come; else -1,
    /// with the jobs that came.
    int list(UtDArray<UtHandle<ZoJob>>& jobs);

    /// Finds out who is there; starts nothing.
    Presence look();

    // The same over a connection that the caller has made and closes.

    /// Connects; null is this machine. Another user's listener on this machine, which could learn
    /// commands and answer what it likes, gets no byte: STRANGER, with its user id in `otherUser`
    /// where it can be told. Where the kernel cannot tell whose a socket is, everybody is trusted.
    static int connect(const char* toHost, int toPort, long long* otherUser = nullptr);

    /// Reads a reply of one line.
    static ZoProtocol::Reply readReply(int fd);

    /// Sends LIST and reads the list into the array, within the connection's receive limit. Returns
    /// 0 when all of it has come, -1 when not, 1 when the server refuses. Lines that no server
    /// writes make jobs all the same, but with isStrict they end the list.
    static int list(int fd, const char* user, UtDArray<UtHandle<ZoJob>>& jobs, bool isStrict);

private:
    int open();
    int startAndConnect();
    ZoProtocol::Reply send(const UtString& line);
};

#endif

#ifndef ZOJOBSERVER_H
#define ZOJOBSERVER_H

#include "schedule/ZoExport.h"
#include "schedule/ZoJob.h"
#include "schedule/ZoJobList.h"
#include "utlib/UtHandle.h"
#include "utlib/UtServerSocket.h"
#include "utlib/UtStringTokenizer.h"

/// The job server: listens on a TCP port, serves one request line per connection for its own user,
/// runs the queue's jobs one at a time, and ends when it has been idle for 30 seconds. A job child
/// outlives it. The limits of time are fields, also that of the base for one connection: what is
/// set before mainLoop() holds.
class SCHEDULE_EXPORT ZoJobServer : public UtServerSocket
{
public:
    ZoJobList jobList;
    unsigned char jobRunning : 1;     ///< a job child is taken to be running: no other is started
    unsigned char terminate : 1;      ///< the main loop ends before its next pass
    unsigned char runAll : 1;         ///< when the running job is done, the next waiting one starts
    bool servesOthers = true;         ///< whether peers on other machines are served
    double secondsPerPass = 30;       ///< the longest wait for a connection; idle so long, it ends
    double secondsBetweenLooks = 30;  ///< at least, for dead job children

    /// Entry of the server process: argv[2], if there is one, is the port, else the usual one is.
    /// Returns 0 when the server has ended; exits with 1 when the port cannot be opened.
    static int main(int argc, char** argv);

    /// Loads the queue and listens on the port; ends the process with a message on standard error
    /// when that is not possible. Takes the log file's name from JOB_LOG_FILE. JOB_PEERS tells
    /// whether other machines are served: unset, empty or "any" serves them, another value does
    /// not.
    explicit ZoJobServer(int wantedPort);
    ~ZoJobServer();

    /// Serves connections until the server is to end.
    void mainLoop();

    /// Reads one request line from an accepted connection, answers it and closes the connection.
    void handleRequest(int fd);

    /// Acts on one request line and writes the reply on fd.
    void interprete(int fd, char* line);

    /// Reads an id and a directory. Returns the first job of the list as last loaded that has both,
    /// else a null handle.
    UtHandle<ZoJob> findJob(UtStringTokenizer& tokens);

    // One handler for each request: the connection, and the arguments where there are any.
    void submit(int fd, UtStringTokenizer& tokens);
    void remove(int fd, UtStringTokenizer& tokens);
    void run(int fd, UtStringTokenizer& tokens);
    void kill(int fd);
    void status(int fd);
    void list(int fd);
    void done(int fd);
    void quit(int fd);

    /// Writes one reply, with a line end behind it unless it has one. Returns 0, or -1 when it
    /// cannot be written: its reader has gone or has taken nothing for too long.
    int answer(int fd, const char* format, ...) UT_PRINTF(3, 4);

    /// Sends one message, framed like a reply, to a port of this machine, and waits at most 10
    /// seconds for the other side to close: a peer that has gone is not served. Says on standard
    /// error when nobody listens there.
    static void send(int toPort, const char* format, ...) UT_PRINTF(2, 3);

private:
    long long lastLook = 0;  ///< for dead job children, by UtClock

    void pass();
    /// Waits for a connection and serves it.
    void serveNext();
    void acceptOne();

    /// Whether the other end of a connection may send requests: on this machine only a socket of
    /// this user or of root, since the name in a request can be known to anybody.
    bool isWelcome(int fd);

    /// Answers with the words of a ZoProtocol::Reply.
    void reply(int fd, int words);

    /// Answers "error" without reading, so that it costs no waiting, and closes the connection.
    void refuse(int fd);

    /// Ends the jobs whose child has died without a report, when the last look for such is long
    /// enough ago: no event would ever do it.
    void endLostJobs();
    /// Starts a job; its child lets go of the connection fd, if there is one, and of the listening
    /// socket. Returns 1 or -1 like ZoJobList::run().
    int startJob(int fd, UtHandle<ZoJob> job);

    /// After a job's end: starts the next waiting one when the whole queue is being run, else comes
    /// to rest with the queue as the file holds it. `fd`: the connection that is open, or -1.
    void startNextOrRest(int fd);
};

#endif

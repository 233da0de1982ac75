#ifndef ZOPROTOCOL_H
#define ZOPROTOCOL_H

#include "schedule/ZoExport.h"
#include "schedule/ZoJob.h"
#include "utlib/UtStringTokenizer.h"

/// What server, clients and job children say to each other. A connection carries one request line
/// and its reply. Both directions of each line stand here and nowhere else; doc/protocol.md has
/// them for writers of other clients.
class SCHEDULE_EXPORT ZoProtocol
{
public:
    enum {
        DEFAULT_PORT = 7160,  ///< of the machine, where nobody has said another one
        MAX_PORT = 65535
    };

    /// What a request asks for: its second word.
    enum Request { SUBMIT, REMOVE, RUN, KILL, STATUS, LIST, DONE, QUIT, UNKNOWN_REQUEST };

    /// What a reply of one line says.
    enum Reply {
        REPLY_OK,
        REPLY_ERROR,    ///< the user, the job or the moment is not right
        REPLY_UNKNOWN,  ///< there is no such request
        REPLY_RUNNING,  ///< status: a job is running
        REPLY_WAITING,  ///< status: none is running, some are waiting
        REPLY_DONE,     ///< status: neither
        NO_REPLY        ///< nothing, or nothing that a server says
    };

    /// Whether a request line can carry the text in double quotes, as command or description.
    static bool canQuote(const char* text);

    /// Whether request and list lines can carry the text bare, as directory.
    static bool canBeBare(const char* text);

    /// Sets `line` to a request without arguments, or with the name of a job: its id and its
    /// directory. Returns 0, or -1 when a line cannot carry it.
    static int writeRequest(UtString& line, const char* user, Request request,
                            const ZoJob* job = nullptr);

    /// Sets `line` to the request that queues a job. Returns 0, or -1 when a line cannot carry the
    /// texts as they are.
    static int writeSubmission(UtString& line, const char* user, const char* command,
                               const char* description, const char* directory);

    /// Reads the first two words of a request line, the user and the request.
    static Request readRequest(UtStringTokenizer& tokens, UtString& user);

    /// Reads the arguments of SUBMIT. Missing ones are empty.
    static void readSubmission(UtStringTokenizer& tokens, UtString& command, UtString& description,
                               UtString& directory);

    /// Reads the name of a job: a job that has an id and a directory and nothing else.
    static UtHandle<ZoJob> readJobName(UtStringTokenizer& tokens);

    /// The words of a reply, without a line end.
    static const char* replyText(Reply reply);

    /// What a reply says. Its line end must have come, only a refusal counts without.
    static Reply readReply(const char* text);

    /// Appends the first line of a list.
    static void writeCount(UtString& text, long count);

    /// Appends a job's line of a list.
    static void writeJob(UtString& text, const ZoJob* job);

    /// The number of jobs that the first line of a list tells; 0 for any other line.
    static long long readCount(const char* line);

    /// Whether a line is one that a server writes: the first one of a list, or a job's.
    static bool isCount(const char* line);
    static bool isJob(const char* line);

    /// A new job from its line of a list; see ZoJob::createFromMessage().
    static ZoJob* readJob(const char* line);
};

#endif

#include "jobs/Server.h"

#include "jobs/Account.h"
#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/Text.h"
#include "schedule/ZoClient.h"
#include "schedule/ZoIdentity.h"
#include "utlib/UtPeer.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <unistd.h>

static const long MAX_ROOT = 245;      // what the library takes
static const int SECONDS_TO_LOOK = 5;  // for an answer to somebody who only wants to know

Server::Server(const std::string& itsHost, const std::string& itsRoot, Start start)
    : host(itsHost), root(start == START ? itsRoot : "")
{
}

std::string Server::portComplaint()
{
    const char* const wrong = ZoClient::wrongPort();
    return wrong ? "JOB_PORT is \"" + std::string(wrong) + "\", which is no port: using " +
                       std::to_string(ZoClient::portOfUser())
                 : "";
}

void Server::onSilence(void (*function)())
{
    ZoClient::onSilence = function;
}

static void (*tellSlowLookup)(const std::string&) = nullptr;

static void sayLookup(const char* name, const char* official, double seconds)
{
    const std::string both =
        std::strcmp(name, official) == 0 ? std::string(name) : std::string(official) + " " + name;
    tellSlowLookup("looking up the name of this machine, " + std::string(name) + ", took " +
                   std::to_string(std::lround(seconds)) +
                   " seconds; it takes none with the line '127.0.1.1 " + both + "' in /etc/hosts");
}

void Server::onSlowLookup(void (*function)(const std::string&))
{
    tellSlowLookup = function;
    ZoIdentity::onSlowLookup = function ? sayLookup : nullptr;
}

/// " (NAME)", as far as it is known.
static std::string ownerText(long long user)
{
    const std::string name = user >= 0 ? Account((uid_t)user).name : "";
    return name.empty() ? "" : " (" + name + ")";
}

static JobError refusal(const ZoClient& client, const std::string& port)
{
    if (client.host.length() > 0)
        return JobError(JobError::FOREIGN_SERVER,
                        "the server on " + port +
                            " refuses you: it belongs to another user, or takes requests only "
                            "from its own machine");
    const std::string other =
        std::to_string(client.port < ZoProtocol::MAX_PORT ? client.port + 1 : client.port - 1);
    return JobError(JobError::FOREIGN_SERVER,
                    port + " belongs to the server of another user" + ownerText(client.otherUser) +
                        "; you get your own on another port, with a line like 'export JOB_PORT=" +
                        other + "' in your profile",
                    client.otherUser);
}

/// Why there is no server on this machine, and why none was started.
static JobError absence(const ZoClient& client)
{
    const std::string launcher = str(client.root) + "/bin/start";
    if (client.root.length() == 0)
        return JobError(JobError::NO_SERVER, "no server is running");
    if (client.root.length() > MAX_ROOT)
        return JobError(JobError::NO_SERVER, "no server is running, and the path of " + launcher +
                                                 " is too long to start one: install it elsewhere");
    if (::access(launcher.c_str(), X_OK) != 0)
        return JobError(JobError::NO_LAUNCHER,
                        withReason("no server is running, and " + launcher + " cannot start one"));
    return JobError(JobError::SILENT_SERVER,
                    "the server that " + launcher + " should start does not answer: see what '" +
                        launcher + " -jobserver " + std::to_string(client.port) + "' says");
}

/// Why the client's last request has not met a server of this user.
static JobError whyNotServed(const ZoClient& client)
{
    const std::string host = str(client.host);
    const std::string port =
        "port " + std::to_string(client.port) + " of " + (host.empty() ? "this machine" : host);
    if (client.presence == ZoClient::REFUSING)
        return refusal(client, port);
    if (client.presence != ZoClient::NONE)
        return JobError(JobError::SILENT_SERVER,
                        "who listens on " + port +
                            " does not answer: the server hangs, or it is something else");
    if (!host.empty())
        return JobError(JobError::NO_SERVER,
                        "no server answers on " + port +
                            ", and one can be started only on that machine itself");
    return absence(client);
}

/// Whether the server has done what was asked for.
static bool isDone(const ZoClient& client, ZoProtocol::Reply reply)
{
    if (reply == ZoProtocol::REPLY_OK)
        return true;
    if (client.presence != ZoClient::OURS)
        throw whyNotServed(client);
    return false;
}

static Server::Presence presenceOf(const ZoClient& client)
{
    switch (client.presence) {
    case ZoClient::OURS:
        return Server::OURS;
    case ZoClient::REFUSING:
        return Server::REFUSING;
    case ZoClient::SILENT:
        return Server::SILENT;
    default:
        return Server::NONE;
    }
}

Server::Look Server::look() const
{
    ZoClient client(host.c_str());
    client.secondsToReply = SECONDS_TO_LOOK;
    client.look();
    const Presence presence = presenceOf(client);
    return { presence, client.otherUser, presence == OURS ? "" : whyNotServed(client).what() };
}

long long Server::strangerOnPort() const
{
    const long long listener =
        isThisMachine() ? UtPeer::listenerOf(ZoClient::portOfUser()) : (long long)UtPeer::UNKNOWN;
    return listener > 0 && !ZoClient::isTrusted(listener) ? listener : -1;
}

void Server::ensure() const
{
    ZoClient client(host.c_str(), root.c_str());
    client.ask(ZoProtocol::STATUS);
    if (client.presence != ZoClient::OURS)
        throw whyNotServed(client);
}

bool Server::submit(const char* command, const std::string& description,
                    const std::string& directory) const
{
    if (!ZoProtocol::canQuote(command) || !ZoProtocol::canQuote(description.c_str()) ||
        !ZoProtocol::canBeBare(directory.c_str()))
        throw JobError(JobError::INVALID, "a request cannot carry these texts: a double quote or "
                                          "a line end, or white space in the directory");
    ZoClient client(host.c_str(), root.c_str());
    return isDone(client, client.submit(command, description.c_str(), directory.c_str()));
}

Queue Server::list() const
{
    ZoClient client(host.c_str(), root.c_str());
    UtDArray<UtHandle<ZoJob>> records;
    if (client.list(records) != 0)
        throw whyNotServed(client);
    return Queue(records);
}

bool Server::run() const
{
    ZoClient client(host.c_str(), root.c_str());
    return isDone(client, client.ask(ZoProtocol::RUN));
}

bool Server::kill() const
{
    ZoClient client(host.c_str(), root.c_str());
    return isDone(client, client.ask(ZoProtocol::KILL));
}

/// Throws for a job that only other programs can have queued.
static UtHandle<ZoJob> nameable(const Job& job)
{
    if (!ZoProtocol::canBeBare(job.directory.c_str()))
        throw JobError(JobError::REFUSED, "no request can name the job's directory, " +
                                              job.directory +
                                              ": it holds white space or a double quote");
    return job.record();
}

bool Server::run(const Job& job) const
{
    ZoClient client(host.c_str(), root.c_str());
    return isDone(client, client.ask(ZoProtocol::RUN, nameable(job)));
}

bool Server::remove(const Job& job) const
{
    if (isThisMachine())
        JobDirectory(job).handStatusOn();
    ZoClient client(host.c_str(), root.c_str());
    return isDone(client, client.ask(ZoProtocol::REMOVE, nameable(job)));
}

void Server::quit() const
{
    ZoClient client(host.c_str());
    if (!isDone(client, client.ask(ZoProtocol::QUIT)))
        throw JobError(JobError::REFUSED, "the server would not end");
}

#include "window/PortOwner.h"

#include "jobs/Account.h"
#include "schedule/ZoClient.h"

#include <QCoreApplication>
#include <QFile>
#include <QList>
#include <unistd.h>

static const char* const TABLES[] = { "/proc/net/tcp", "/proc/net/tcp6" };
static const char* const LISTENING = "0A";        // in the kernel's tables
enum { LOCAL_ADDRESS = 1, STATE = 3, USER = 7 };  // their columns

static QString tr(const char* text)
{
    return QCoreApplication::translate("PortOwner", text);
}

/// The user id of whoever listens on the port; -1 when nobody does or it cannot be told.
static long ownerOf(int port)
{
    const QByteArray end = ":" + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    for (const char* const name : TABLES) {
        QFile table(name);
        if (!table.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray& line : table.readAll().split('\n')) {
            const QList<QByteArray> words = line.simplified().split(' ');
            if (words.size() > USER && words[STATE] == LISTENING &&
                words[LOCAL_ADDRESS].endsWith(end))
                return words[USER].toLong();
        }
    }
    return -1;
}

void lookAtPort(QueueSnapshot& queue)
{
    const int port = ZoClient::portOfUser();
    const long owner = ownerOf(port);
    if (owner < 0) {
        queue.server = QueueSnapshot::NONE;
        queue.serverText = tr("No server (it starts with the next run)");
    } else if (owner == long(::getuid())) {
        queue.server = QueueSnapshot::OURS;
        queue.serverText = tr("Server on port %1").arg(port);
    } else {
        const std::string account = Account(uid_t(owner)).name;
        const QString name =
            account.empty() ? QString::number(owner) : QString::fromStdString(account);
        queue.server = QueueSnapshot::FOREIGN;
        queue.serverText = tr("Port %1 is in use by %2: set JOB_PORT to a free port for all your "
                              "programs, and start them anew")
                               .arg(QString::number(port), name);
    }
}

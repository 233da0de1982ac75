#include "window/SingleInstance.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

static const int PATIENCE = 3000;  // ms

/// A path for what belongs to this session: another display is another session.
static QString sessionPath(const QString& name)
{
    QString place = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (place.isEmpty())
        place = QDir::tempPath();
    QString session = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (session.isEmpty())
        session = qEnvironmentVariable("DISPLAY", "none");
    return place + "/" + name + "-" + session.replace('/', '_');
}

SingleInstance::SingleInstance(const QString& name)
    : socket(sessionPath(name)), lock(socket + ".lock")
{
    lock.setStaleLockTime(0);  // a lock is stale when its process is gone, however old it is
}

SingleInstance::~SingleInstance() = default;

SingleInstance::Place SingleInstance::begin()
{
    if (!lock.tryLock(0) && lock.error() == QLockFile::LockFailedError)
        return call();
    // Also where no lock can be made: two windows are better than none.
    server = new QLocalServer(this);
    server->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(socket);  // of one that crashed
    server->listen(socket);
    connect(server, &QLocalServer::newConnection, this, [this] {
        QLocalSocket* const caller = server->nextPendingConnection();
        connect(caller, &QLocalSocket::disconnected, caller, &QObject::deleteLater);
        caller->write("ok\n");
        caller->flush();
        emit called();
    });
    return FIRST;
}

SingleInstance::Place SingleInstance::call() const
{
    QLocalSocket caller;
    caller.connectToServer(socket);
    return caller.waitForConnected(PATIENCE) && caller.waitForReadyRead(PATIENCE) ? SECOND
                                                                                  : UNANSWERED;
}

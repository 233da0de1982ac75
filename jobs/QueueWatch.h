#ifndef QUEUEWATCH_H
#define QUEUEWATCH_H

#include "jobs/Queue.h"
#include "jobs/QueueFile.h"
#include "jobs/Seconds.h"
#include "jobs/Server.h"

#include <ctime>
#include <memory>
#include <sys/types.h>

/// The queue of a server, once: on this machine from the queue file, which starts and asks no
/// server; from another machine over the protocol. Throws JobError.
Queue readQueue(const Server& server);

/// The same queue again and again, whenever it has changed. On this machine no server is asked: the
/// kernel tells when the queue file is written, and where it does not, a look at the file every 5
/// seconds does. For another machine every look is a question to its server, after a pause that
/// grows to a second.
///
///     QueueWatch watch(server);
///     for (;;) {
///         if (watch.hasChanged())
///             show(watch.read());
///         watch.wait(60);
///     }
///
/// A program with an event loop of its own waits for descriptor() in place of wait(), and looks
/// once in SLOW_LOOK seconds besides. An object belongs to one thread at a time.
class QueueWatch
{
public:
    static const int SLOW_LOOK = 5;  ///< seconds

    /// The server must live as long as the object.
    explicit QueueWatch(const Server& itsServer);
    ~QueueWatch();
    QueueWatch(const QueueWatch&) = delete;
    QueueWatch& operator=(const QueueWatch&) = delete;

    /// Whether the queue may be another one than read() returned last; true before the first
    /// read(). Never blocks.
    bool hasChanged();

    /// The queue as it is now. Throws JobError.
    Queue read();

    /// Sleeps until the queue may have changed, at most so many seconds; also shorter.
    void wait(double seconds);

    /// Becomes readable when hasChanged() is to be asked; -1 where only slow looks tell.
    int descriptor() const { return notifier; }

    const Server& server;

private:
    /// What tells one state of the queue file from another without reading it.
    struct Stamp {
        struct timespec time = {};
        off_t size = -1;  // no file
        ino_t inode = 0;
    };

    void startNotifier();
    void stopNotifier();
    void takeEvents();
    Stamp stampNow() const;

    std::unique_ptr<QueueFile> file;  // null: the queue of another machine
    int notifier = -1;
    bool changed = true;
    Stamp stamp;              // of the file that was read last
    bool isOpen = false;      // a job waited or ran when it was read
    bool hadTrouble = false;  // and it could not be written: the file tells of no change
    double looked = 0;        // when the stamp was compared last
    double pause = 0;         // of another machine: seconds to the next question
    double asked = 0;         // of another machine: when it was asked last
};

#endif

#include "jobs/QueueWatch.h"

#include "jobs/Cluster.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

static const double FIRST_PAUSE = 0.2;  // seconds between two questions to another machine
static const double LAST_PAUSE = 1;
static const double GROWTH = 1.2;

// A rewrite is many events, but it ends with the closing of the file, also when its process dies.
static const unsigned FILE_EVENTS = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
static const unsigned LOST_EVENTS = IN_IGNORED | IN_UNMOUNT | IN_MOVE_SELF;

Queue readQueue(const Server& server)
{
    Queue queue = server.isThisMachine() ? QueueFile().read() : server.list();
    readClusters(queue.jobs);
    return queue;
}

QueueWatch::QueueWatch(const Server& itsServer) : server(itsServer)
{
    if (!server.isThisMachine())
        return;
    file = std::make_unique<QueueFile>();
    startNotifier();
}

QueueWatch::~QueueWatch()
{
    stopNotifier();
}

void QueueWatch::startNotifier()
{
    // The directory, since the file may not be there yet, or be put in place of another one.
    notifier = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (notifier >= 0 && ::inotify_add_watch(notifier, file->directory().c_str(),
                                             FILE_EVENTS | IN_MOVE_SELF | IN_ONLYDIR) < 0)
        stopNotifier();
}

void QueueWatch::stopNotifier()
{
    if (notifier >= 0)
        ::close(notifier);
    notifier = -1;
}

void QueueWatch::takeEvents()
{
    alignas(struct inotify_event) char buffer[16384];
    const std::string name = file->name();
    bool isLost = false;
    for (ssize_t n; notifier >= 0 && (n = ::read(notifier, buffer, sizeof buffer)) > 0;) {
        for (const char* p = buffer; p < buffer + n;) {
            const auto* const event = reinterpret_cast<const struct inotify_event*>(p);
            if (event->mask & (LOST_EVENTS | IN_Q_OVERFLOW) ||
                (event->len > 0 && name == event->name))
                changed = true;
            isLost = isLost || (event->mask & LOST_EVENTS);
            p += sizeof *event + event->len;
        }
    }
    if (isLost)
        stopNotifier();
}

QueueWatch::Stamp QueueWatch::stampNow() const
{
    struct stat status;
    Stamp result;
    if (::stat(file->path().c_str(), &status) == 0) {
        result.time = status.st_mtim;
        result.size = status.st_size;
        result.inode = status.st_ino;
    }
    return result;
}

bool QueueWatch::hasChanged()
{
    const double now = secondsNow();
    if (!file)
        return changed || now - asked >= pause;
    takeEvents();
    if (!changed && now - looked >= SLOW_LOOK) {
        const Stamp current = stampNow();
        looked = now;
        changed = current.size != stamp.size || current.inode != stamp.inode ||
                  current.time.tv_sec != stamp.time.tv_sec ||
                  current.time.tv_nsec != stamp.time.tv_nsec ||
                  (isOpen && (hadTrouble || !file->trouble().empty()));
    }
    return changed;
}

Queue QueueWatch::read()
{
    // First, so that what is written meanwhile is told of afterwards.
    changed = false;
    if (file) {
        takeEvents();
        changed = false;
        stamp = stampNow();
        looked = secondsNow();
        Queue queue = file->read();
        isOpen = queue.running() || queue.waiting();
        hadTrouble = !queue.trouble.empty();
        readClusters(queue.jobs);
        return queue;
    }
    pause = pause > 0 ? std::min(pause * GROWTH, LAST_PAUSE) : FIRST_PAUSE;
    asked = secondsNow();  // also when nobody answers
    Queue queue = server.list();
    asked = secondsNow();
    readClusters(queue.jobs);
    return queue;
}

void QueueWatch::wait(double seconds)
{
    if (hasChanged())
        return;
    const double due = file ? looked + SLOW_LOOK : asked + pause;
    const double left = std::max(0.0, std::min(seconds, due - secondsNow()));
    struct pollfd events = { notifier, POLLIN, 0 };
    (void)::poll(&events, notifier >= 0, (int)std::ceil(1000 * left));
}

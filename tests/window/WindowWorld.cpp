#include "tests/window/WindowWorld.h"

#include "schedule/ZoJobList.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

bool WindowWorld::waitFor(const std::function<bool()>& condition, double seconds)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > qint64(1000 * seconds))
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        // Without a loop around them Qt 5 leaves these alone.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(2);
    }
    return true;
}

void WindowWorld::endServer()
{
    Sandbox::request(Sandbox::SCHEDULE_PORT, "tester quit\n");
    Sandbox::waitFor([] { return !Sandbox::isListening(Sandbox::SCHEDULE_PORT); });
}

void WindowWorld::makeWaiting(int count)
{
    ZoJobList list;
    list.lockQueue();
    list.readQueue(list.jobs);
    for (int i = int(list.jobs.size()) + 1; i <= count; ++i) {
        const UtHandle<ZoJob> job(new ZoJob);
        job->id = i;
        job->state = ZoJob::WAITING;
        job->command = ("echo job " + std::to_string(i)).c_str();
        job->directory = Sandbox::path("tmp").c_str();
        list.jobs.append(job);
        Sandbox::write(Sandbox::path("tmp/." + std::to_string(i)), "");
    }
    list.writeQueue(list.jobs);
    list.unlockQueue();
}

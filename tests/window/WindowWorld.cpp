#include "tests/window/WindowWorld.h"

#include "jobs/JobScript.h"
#include "jobs/Queue.h"
#include "jobs/Server.h"
#include "jobs/Submission.h"
#include "schedule/ZoJobList.h"
#include "tests/sandbox/TestServer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPalette>
#include <QThread>
#include <ctime>

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

/// Changes every job of the queue file.
static void changeQueue(const std::function<void(ZoJobList&)>& change)
{
    ZoJobList list;
    list.lockQueue();
    list.readQueue(list.jobs);
    change(list);
    list.writeQueue(list.jobs);
    list.unlockQueue();
}

void WindowWorld::makePast(const std::vector<Past>& jobs)
{
    TestServer process(Sandbox::SCHEDULE_PORT);
    const Server server("", KELVO_BUILD_DIR);
    for (const Past& job : jobs) {
        Submission submission;
        submission.body = job.command;
        submission.command = job.command;
        submission.description = describe(job.command);
        submission.directory = Sandbox::home();
        submission.queue(server);
    }
    process.quit();
    const long long now = ::time(nullptr);
    changeQueue([&](ZoJobList& list) {
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            const UtHandle<ZoJob> job = list.jobs[long(i)];
            const std::string place = (const char*)job->directory;
            if (jobs[i].state == ZoJob::WAITING)
                continue;
            job->state = jobs[i].state;
            job->startTime = now - jobs[i].started;
            job->endTime = job->startTime + jobs[i].seconds;
            Sandbox::write(place + "/log", jobs[i].output);
            Sandbox::write(place + "/exit", std::to_string(jobs[i].status) + "\n");
        }
    });
}

void WindowWorld::makeWaiting(int count)
{
    changeQueue([count](ZoJobList& list) {
        for (int i = int(list.jobs.size()) + 1; i <= count; ++i) {
            const UtHandle<ZoJob> job(new ZoJob);
            job->id = i;
            job->state = ZoJob::WAITING;
            job->command = ("echo job " + std::to_string(i)).c_str();
            job->directory = Sandbox::path("tmp").c_str();
            list.jobs.append(job);
            Sandbox::write(Sandbox::path("tmp/." + std::to_string(i)), "");
        }
    });
}

QPalette WindowWorld::light()
{
    QPalette palette(QColor(0xEF, 0xF0, 0xF2));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, QColor(0xF7, 0xF8, 0xF9));
    palette.setColor(QPalette::Highlight, QColor(0x2F, 0x6F, 0xC4));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    return palette;
}

QPalette WindowWorld::dark()
{
    QPalette palette(QColor(0x2B, 0x2E, 0x33));
    palette.setColor(QPalette::Base, QColor(0x1E, 0x20, 0x24));
    palette.setColor(QPalette::AlternateBase, QColor(0x24, 0x26, 0x2B));
    for (const auto role : { QPalette::WindowText, QPalette::ButtonText, QPalette::Text })
        palette.setColor(QPalette::Disabled, role, QColor(0x80, 0x85, 0x8D));
    palette.setColor(QPalette::Highlight, QColor(0x3D, 0x7F, 0xD6));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    return palette;
}

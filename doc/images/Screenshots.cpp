// Makes the pictures of doc/window.md: window_screenshots DIRECTORY, which has to lie in the build
// directory. The jobs are real ones, but for those of the past.
#include "tests/window/WindowWorld.h"

#include "jobs/JobScript.h"
#include "jobs/Queue.h"
#include "jobs/Server.h"
#include "jobs/Submission.h"
#include "schedule/ZoJobList.h"
#include "tests/sandbox/TestServer.h"
#include "window/MainWindow.h"
#include "window/NewJobDialog.h"
#include "window/OutputView.h"
#include "window/ZoJobPanel.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFont>
#include <QHash>
#include <QImage>
#include <QLineEdit>
#include <QPalette>
#include <QPlainTextEdit>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

static QString theDirectory;

/// With a table of the colours that are used most: a third of the bytes, and nothing to be seen of
/// it.
static QImage withTable(const QImage& image)
{
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            ++counts[image.pixel(x, y)];
    QVector<QRgb> colours(counts.keyBegin(), counts.keyEnd());
    std::sort(colours.begin(), colours.end(),
              [&](QRgb a, QRgb b) { return counts[a] > counts[b]; });
    colours.resize(std::min<int>(256, int(colours.size())));
    return image.convertToFormat(QImage::Format_Indexed8, colours);
}

static void save(QWidget& widget, const char* name)
{
    WindowWorld::waitFor([] { return false; }, 0.5);  // for what is drawn a moment later
    const QImage image = withTable(widget.grab().toImage());
    const QString file = theDirectory + "/window-" + name + ".png";
    if (!image.save(file, "PNG", 0)) {
        std::fprintf(stderr, "window_screenshots: cannot write %s\n", qPrintable(file));
        std::exit(1);
    }
}

static QPalette lightPalette()
{
    QPalette palette(QColor(0xEF, 0xF0, 0xF2));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, QColor(0xF7, 0xF8, 0xF9));
    palette.setColor(QPalette::Highlight, QColor(0x2F, 0x6F, 0xC4));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    return palette;
}

static QPalette darkPalette()
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

static std::unique_ptr<MainWindow> openWindow(const QSize& size, bool dark)
{
    QApplication::setPalette(dark ? darkPalette() : lightPalette());
    auto window = std::make_unique<MainWindow>(WindowWorld::root());
    window->resize(size);
    window->show();
    return window;
}

/// Waits until there are so many jobs, selects one, and waits for its output to hold the text.
static void selectJob(MainWindow& window, int count, int row, const char* text)
{
    const ZoJobRows& rows = window.panel->model()->rows();
    WindowWorld::waitFor([&] { return rows.size() == count; });
    window.panel->selectJob(rows[row].id, rows[row].directory);
    const auto* const output = window.findChild<OutputView*>();
    WindowWorld::waitFor([&] { return output->toPlainText().contains(text); });
}

/// Types a job into the dialog.
static NewJobDialog* typeJob(MainWindow& window, const QString& command, const QString& label)
{
    window.panel->action(ZoJobPanel::NEW_JOB)->trigger();
    auto* dialog = window.findChild<NewJobDialog*>();
    dialog->command->setPlainText(command);
    dialog->label->setText(label);
    return dialog;
}

static void submit(MainWindow& window, const QString& command, const QString& label)
{
    const int before = int(window.panel->model()->rows().size());
    typeJob(window, command, label)->submit();
    WindowWorld::waitFor([&] { return window.panel->model()->rows().size() > before; });
    WindowWorld::waitFor([] { return false; }, 0.3);
}

static const char* const BUILD =
    "printf '\\033[32m[ 12%%]\\033[0m Building UtString.cpp\\n'\n"
    "printf '\\033[32m[ 37%%]\\033[0m Building ZoJobList.cpp\\n'\n"
    "printf '\\033[1;33mwarning:\\033[0m this machine has 2 processors only\\n'\n"
    "printf '\\033[32m[ 61%%]\\033[0m Building ZoJobServer.cpp\\n'\n"
    "printf 'linking  10%%\\rlinking  74%%'; sleep 60";

static void pictureEmpty()
{
    save(*openWindow(QSize(800, 600), false), "empty");
}

static void pictureRunning()
{
    auto window = openWindow(QSize(1280, 800), false);
    submit(*window, BUILD, "build of the library");
    submit(*window, "ctest --test-dir build -j2", "");
    submit(*window, "cp -a build/package /srv/packages", "copy the package");
    selectJob(*window, 3, 0, "74%");
    WindowWorld::waitFor([] { return false; }, 4);
    save(*window, "running");
    NewJobDialog* const dialog =
        typeJob(*window, "nice make -C ~/photos thumbnails", "thumbnails of the holiday");
    dialog->directory->setText("/home/tester/photos");
    save(*dialog, "new-job");
    dialog->reject();
    Sandbox::request(Sandbox::SCHEDULE_PORT, "tester kill\n");
}

/// A job that is over, or waits, without ever having been run.
struct Past {
    std::string command;
    int state;          ///< of ZoJob
    int status;         ///< that the command ended with
    long long started;  ///< seconds before now
    long long seconds;
    const char* output;
};

/// Submits the jobs to the server of this world, as the window does, and has the queue say what
/// became of them.
static void makePast(const std::vector<Past>& jobs)
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
    ZoJobList list;
    list.lockQueue();
    list.readQueue(list.jobs);
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
    list.writeQueue(list.jobs);
    list.unlockQueue();
}

static void pictureFailed()
{
    makePast({
        { "backup.sh /home /srv/backup", ZoJob::DONE, 0, 5400, 900, "1,204 files\n" },
        { "make -C kernel bzImage", ZoJob::DONE, 2, 4300, 700,
          "  CC      init/main.o\n  CC      kernel/fork.o\n"
          "kernel/fork.c:118:9: \033[1;31merror:\033[0m 'nr_threads' undeclared\n"
          "make[1]: *** [scripts/Makefile.build:250: kernel/fork.o] Error 1\n"
          "make: *** [Makefile:1906: kernel] Error 2\n" },
        { "make -C kernel modules", ZoJob::KILLED, 143, 3400, 300, "  CC [M]  fs/ext4/super.o\n" },
        { "rsync -a photos/ nas:photos", ZoJob::DONE, 0, 3000, 2100, "sent 2,113 files\n" },
    });
    auto window = openWindow(QSize(800, 600), true);
    selectJob(*window, 4, 1, "Error 2");
    save(*window, "failed");
}

static void pictureHundred()
{
    const char* const commands[] = { "simulate --case harbour --step %1", "render frame-%1.scene",
                                     "solve mesh-%1.inp", "tar czf results-%1.tar.gz results-%1" };
    std::vector<Past> jobs;
    long long left = 7 * 3600;
    for (int i = 0; i < 100; ++i) {
        const long long seconds = 40 + (i * 7919) % 560;
        const bool waits = i >= 78 || left < seconds;
        const int state = waits ? ZoJob::WAITING : i % 23 == 5 ? ZoJob::KILLED : ZoJob::DONE;
        const int status = i % 13 == 9 ? 1 : 0;
        jobs.push_back({ QString(commands[i % 4]).arg(i + 1).toStdString(), state, status, left,
                         seconds,
                         status ? "reading input\nsolver: no convergence after 400 steps\n"
                                : "reading input\nstep 400 of 400\ndone\n" });
        left -= seconds + (i % 19 == 0 ? 900 : 2);
    }
    makePast(jobs);
    for (const bool dark : { false, true }) {
        auto window = openWindow(dark ? QSize(1280, 800) : QSize(800, 600), dark);
        selectJob(*window, 100, 61, "reading");
        save(*window, dark ? "hundred-dark" : "hundred-light");
    }
}

int main(int argc, char** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    if (argc != 2) {
        std::fprintf(stderr, "usage: window_screenshots DIRECTORY\n");
        return 2;
    }
    theDirectory = QDir(argv[1]).absolutePath();
    Sandbox::enter(argv);
    Sandbox::enterNew();
    QApplication application(argc, argv);
    QApplication::setFont(QFont("DejaVu Sans", 9));
    QApplication::setQuitOnLastWindowClosed(false);
    for (auto* const picture : { pictureEmpty, pictureRunning, pictureFailed, pictureHundred }) {
        Sandbox::enterNew();
        picture();
        WindowWorld::endServer();
    }
    return 0;
}

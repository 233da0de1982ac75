// zojob-window: the queue of this user on this machine, in a window.
#include "window/MainWindow.h"
#include "window/SingleInstance.h"
#include "window/StateLook.h"
#include "window/ZoJobPanel.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <cstdio>

static QString rootDirectory(const QCommandLineParser& parser)
{
    if (parser.isSet("root"))
        return QDir(parser.value("root")).absolutePath();
    return QDir(QApplication::applicationDirPath() + "/..").absolutePath();
}

static void addOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        QApplication::translate("main", "Shows your queue of batch jobs on this machine, and "
                                        "works it."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({ "root",
                       QApplication::translate("main", "The installation directory, whose "
                                                       "bin/start starts the job server."),
                       "directory" });
    parser.addOption({ "new", QApplication::translate("main", "Begin with a new job.") });
}

/// Whether Qt can show something here; otherwise it would end the program with a page of advice.
static bool hasDisplay(int argc, char** argv)
{
    for (const char* const name : { "DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM" })
        if (!qEnvironmentVariableIsEmpty(name))
            return true;
    for (int i = 1; i < argc; ++i)
        for (const char* const word : { "-h", "--help", "--help-all", "-v", "--version" })
            if (qstrcmp(argv[i], word) == 0)
                return qputenv("QT_QPA_PLATFORM", "offscreen");  // for what is only printed
    return argc > 1 && qstrcmp(argv[1], "-platform") == 0;
}

int main(int argc, char** argv)
{
    if (!hasDisplay(argc, argv)) {
        std::fprintf(stderr, "zojob-window: there is no display here (DISPLAY and WAYLAND_DISPLAY "
                             "are not set); zojob shows the queue at a prompt\n");
        return 1;
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName("zojob-window");
    QApplication::setOrganizationName("kelvo");
    QApplication::setApplicationDisplayName("zojob");
    QApplication::setApplicationVersion(KELVO_VERSION);
    QApplication::setQuitOnLastWindowClosed(false);
    QGuiApplication::setDesktopFileName("zojob-window");
    QApplication::setWindowIcon(QIcon::fromTheme("zojob-window", drawnIcon("app")));
    QCommandLineParser parser;
    addOptions(parser);
    parser.process(application);

    SingleInstance instance("zojob-window");
    const SingleInstance::Place place = instance.begin();
    if (place == SingleInstance::UNANSWERED)
        std::fprintf(stderr, "zojob-window: the window that is open already does not answer; it "
                             "may be busy, or end it and try again\n");
    if (place != SingleInstance::FIRST)
        return place == SingleInstance::SECOND ? 0 : 1;
    MainWindow window(rootDirectory(parser));
    QObject::connect(&instance, &SingleInstance::called, &window, &MainWindow::bringToFront);
    window.show();
    if (parser.isSet("new"))
        window.panel->action(ZoJobPanel::NEW_JOB)->trigger();
    return QApplication::exec();
}

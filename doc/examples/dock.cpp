// dock INSTALLATION: an application that has the queue of jobs in a dock.
#include <window/ZoJobPanel.h>

#include <QApplication>
#include <QDockWidget>
#include <QMainWindow>
#include <QMenuBar>
#include <QSettings>
#include <QTextEdit>

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    if (argc != 2)
        return 2;
    QMainWindow window;
    window.setCentralWidget(new QTextEdit);

    auto* const panel = new ZoJobPanel(argv[1]);
    auto* const dock = new QDockWidget("Jobs");
    dock->setObjectName("jobs");
    dock->setWidget(panel);
    window.addDockWidget(Qt::BottomDockWidgetArea, dock);

    // The panel's actions in a menu of the application; they grey themselves.
    QMenu* const menu = window.menuBar()->addMenu("&Jobs");
    for (const auto which : { ZoJobPanel::NEW_JOB, ZoJobPanel::RUN_ALL, ZoJobPanel::KILL })
        menu->addAction(panel->action(which));
    menu->addAction(dock->toggleViewAction());
    QObject::connect(panel, &ZoJobPanel::queueChanged, &window, [&] {
        window.setWindowTitle(QString("%1 jobs").arg(panel->model()->rowCount()));
    });

    QSettings settings("example", "dock");
    panel->restoreState(settings.value("jobs").toByteArray());
    window.show();
    const int status = QApplication::exec();
    settings.setValue("jobs", panel->saveState());
    return status;
}

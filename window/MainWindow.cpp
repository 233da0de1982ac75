#include "window/MainWindow.h"

#include "window/StateLook.h"
#include "window/TrayIcon.h"
#include "window/ZoJobPanel.h"

#include <QApplication>
#include <QCloseEvent>
#include <QMenuBar>
#include <QMessageBox>
#include <QSettings>

static const char* const GEOMETRY = "window/geometry";
static const char* const PANEL = "window/panel";
static const char* const TRAY = "window/tray";

MainWindow::MainWindow(const QString& rootDirectory) : panel(new ZoJobPanel(rootDirectory, this))
{
    setWindowTitle(tr("Jobs"));
    setCentralWidget(panel);
    makeMenus();
    makeTray();
    load();
}

void MainWindow::makeMenus()
{
    const auto fill = [this](QMenu* menu, std::initializer_list<ZoJobPanel::Action> actions) {
        menu->setToolTipsVisible(true);
        for (const auto which : actions)
            menu->addAction(panel->action(which));
    };
    QMenu* const queue = menuBar()->addMenu(tr("&Queue"));
    fill(queue, { ZoJobPanel::NEW_JOB, ZoJobPanel::RUN_ALL, ZoJobPanel::REMOVE_FINISHED });
    queue->addSeparator();
    fill(queue, { ZoJobPanel::FIND, ZoJobPanel::REFRESH });
    trayAction = queue->addAction(tr("Icon and &messages in the tray"));
    trayAction->setCheckable(true);
    trayAction->setToolTip(tr("Tells when a job fails or the queue is through; closing the window "
                              "then leaves the icon"));
    queue->addSeparator();
    quitAction = queue->addAction(tr("&Quit"));
    quitAction->setShortcut(QKeySequence(tr("Ctrl+Q")));
    quitAction->setToolTip(tr("Ends the window; jobs go on without it"));
    connect(quitAction, &QAction::triggered, this, &MainWindow::quit);
    QMenu* const job = menuBar()->addMenu(tr("&Job"));
    fill(job, { ZoJobPanel::RUN, ZoJobPanel::KILL, ZoJobPanel::REMOVE, ZoJobPanel::SUBMIT_AGAIN });
    job->addSeparator();
    fill(job, { ZoJobPanel::COPY_COMMAND, ZoJobPanel::COPY_OUTPUT });
    QMenu* const help = menuBar()->addMenu(tr("&Help"));
    connect(help->addAction(tr("&About")), &QAction::triggered, this, &MainWindow::about);
}

void MainWindow::makeTray()
{
    trayMenu = new QMenu(this);
    connect(trayMenu->addAction(tr("Show the window")), &QAction::triggered, this,
            &MainWindow::bringToFront);
    connect(trayMenu->addAction(panel->action(ZoJobPanel::NEW_JOB)->text()), &QAction::triggered,
            this, [this] {
                bringToFront();
                panel->action(ZoJobPanel::NEW_JOB)->trigger();
            });
    trayMenu->addSeparator();
    trayMenu->addAction(quitAction);
    tray = new TrayIcon(panel, trayMenu, this);
    connect(trayAction, &QAction::toggled, tray, &TrayIcon::setOn);
    connect(tray, &TrayIcon::activated, this, [this](const JobKey& job) {
        bringToFront();
        panel->selectJob(job.id, job.directory);
    });
}

void MainWindow::load()
{
    const QSettings settings;
    resize(1000, 680);
    restoreGeometry(settings.value(GEOMETRY).toByteArray());
    panel->restoreState(settings.value(PANEL).toByteArray());
    trayAction->setChecked(settings.value(TRAY, true).toBool());
    tray->setOn(trayAction->isChecked());
}

void MainWindow::save() const
{
    QSettings settings;
    settings.setValue(GEOMETRY, saveGeometry());
    settings.setValue(PANEL, panel->saveState());
    settings.setValue(TRAY, trayAction->isChecked());
}

void MainWindow::bringToFront()
{
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void MainWindow::quit()
{
    save();
    QApplication::quit();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    save();
    // With the icon the window can be had back, so it only hides; unless the session ends.
    if (tray->isShown() && !qApp->isSavingSession()) {
        hide();
        event->ignore();
        return;
    }
    QMainWindow::closeEvent(event);
    QApplication::quit();
}

void MainWindow::about()
{
    QMessageBox box(QMessageBox::NoIcon, tr("About"),
                    tr("zojob-window %1").arg(QApplication::applicationVersion()), QMessageBox::Ok,
                    this);
    box.setInformativeText(tr("The queue of batch jobs of this user on this machine. Closing the "
                              "window ends no job; \u201Czojob\u201D is the same queue at a "
                              "prompt."));
    box.setIconPixmap(windowIcon().pixmap(48, 48));
    box.exec();
}

#ifndef MAINWINDOW_H
#define MAINWINDOW_H

#include <QMainWindow>

class QMenu;
class TrayIcon;
class ZoJobPanel;

/// The panel in a window of its own, with menus, a tray icon and a memory for its geometry. Closing
/// it ends no job.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(const QString& rootDirectory);

    ZoJobPanel* panel;

    /// Shows the window in front of the others.
    void bringToFront();

    /// Saves what is to be remembered and ends the program.
    void quit();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void makeMenus();
    void makeTray();
    void load();
    void save() const;
    void about();

    QAction* trayAction;
    QAction* quitAction;
    QMenu* trayMenu;
    TrayIcon* tray;
};

#endif

#ifndef TRAYICON_H
#define TRAYICON_H

#include "window/QueueNotices.h"

#include <QObject>

class QMenu;
class QSystemTrayIcon;
class QTimer;
class QWidget;
class ZoJobPanel;

/// Keeps somebody informed who does not look at the window: an icon whose tooltip names the running
/// job, and a message when a job fails or the queue is through. Where the desktop has no tray there
/// is neither.
class TrayIcon : public QObject
{
    Q_OBJECT

public:
    /// The messages stop while the window is in front.
    TrayIcon(ZoJobPanel* jobPanel, QMenu* menu, QWidget* window);

    void setOn(bool on);

    /// Whether there is an icon from which a hidden window can be had back.
    bool isShown() const;

signals:
    /// The icon or a message was clicked; the key is that of the message's job, or empty.
    void activated(const JobKey& job);

private:
    void takeQueue();
    void tell(const QueueNotice& notice);

    ZoJobPanel* panel;
    QWidget* window;
    QSystemTrayIcon* icon;
    QTimer* quiet;
    QueueNotices notices;
    JobKey told;
};

#endif

#ifndef ZOJOBPANEL_H
#define ZOJOBPANEL_H

#include "window/ZoJobModel.h"
#include "window/ZoWindowExport.h"

#include <QWidget>

class QAction;
struct ZoJobPanelParts;

/// The queue of this user on this machine, with everything that can be done with it: the list, the
/// day, the output and details of a job, and the actions. It can stand anywhere in an application
/// with a QApplication, for instance in a dock:
///
///     auto* dock = new QDockWidget("Jobs", this);
///     dock->setWidget(new ZoJobPanel("/opt/kelvo", dock));
///
/// Nothing in it waits: a thread of its own reads files and asks the server. Delete it in the
/// application's thread, before the QApplication.
class ZOWINDOW_EXPORT ZoJobPanel : public QWidget
{
    Q_OBJECT

public:
    enum Action {
        NEW_JOB,
        RUN_ALL,
        RUN,
        KILL,
        REMOVE,
        REMOVE_FINISHED,
        SUBMIT_AGAIN,
        COPY_COMMAND,
        COPY_OUTPUT,
        REFRESH,
        FIND,
        ACTIONS
    };

    /// `rootDirectory` is the installation directory, whose launcher "bin/start" starts the server
    /// when a request needs one.
    explicit ZoJobPanel(const QString& rootDirectory, QWidget* parent = nullptr);
    ~ZoJobPanel() override;

    /// The queue, for further views of it.
    ZoJobModel* model() const;

    /// An action for menus and tool bars; it greys itself while it cannot be done.
    QAction* action(Action which) const;

    /// Where a new job runs unless its user says otherwise; at first the current directory.
    void setDirectory(const QString& path);
    QString directory() const;

    /// Column widths, splitter and sort order, for the application's settings.
    QByteArray saveState() const;
    bool restoreState(const QByteArray& state);

    /// Selects the job; false when it is not in the queue.
    bool selectJob(qint64 id, const QByteArray& jobDirectory);

signals:
    /// The queue has changed; model() shows it already.
    void queueChanged();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    friend struct ZoJobPanelParts;

    ZoJobPanelParts* parts;
};

#endif

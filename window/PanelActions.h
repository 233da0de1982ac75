#ifndef PANELACTIONS_H
#define PANELACTIONS_H

#include "window/QueueTypes.h"
#include "window/ZoJobPanel.h"

#include <QAction>
#include <QObject>

/// What the actions have to know: the queue, and what somebody has chosen of it.
struct ActionSituation {
    ZoJobRows queue;
    ZoJobRows selected;
    QueueSnapshot::Server server = QueueSnapshot::NONE;
    QString serverText;
    QString problem;         ///< why the queue cannot be read; empty when it can
    bool hasOutput = false;  ///< some is shown
};

/// Why this cannot be done now, as a sentence; empty when it can.
ZOWINDOW_EXPORT QString whyNot(ZoJobPanel::Action action, const ActionSituation& situation);

/// What KILL would end: the running and waiting ones of the selected jobs; without a selection what
/// runs.
ZoJobRows killable(const ActionSituation& situation);

/// The actions with their names, icons, keys and tooltips.
class ZOWINDOW_EXPORT PanelActions : public QObject
{
    Q_OBJECT

public:
    explicit PanelActions(QWidget* panel);

    QAction* actions[ZoJobPanel::ACTIONS];

    /// Greys what cannot be done, and has its tooltip say why.
    void update(const ActionSituation& situation);
};

#endif

#ifndef PANELPARTS_H
#define PANELPARTS_H

#include "window/PanelActions.h"
#include "window/QueueLink.h"

#include <QHash>
#include <QPointer>

class DayStrip;
class JobTable;
class JobView;
class MessageLine;
class NewJobDialog;
class QLabel;
class QLineEdit;
class QSplitter;

/// The inside of a ZoJobPanel.
struct ZoJobPanelParts : public QObject {
    Q_OBJECT

public:
    ZoJobPanelParts(const QString& rootDirectory, ZoJobPanel* owner);

    void takeQueue(const QueueSnapshot& queue);
    void takeAnswer(const Answer& answer);
    void updateView();
    void updateActions();
    void updateFoot();

    void newJob();
    void askKill();
    void askRemove(const ZoJobRows& jobs);
    void removeFinished();
    void submitAgain();
    void copyCommand();
    void copyOutput();

    ZoJobPanel* panel;
    ZoJobModel* model;
    QueueLink* link;
    PanelActions* actions;

    MessageLine* message;
    DayStrip* strip;
    JobTable* table;
    JobView* view;
    QLineEdit* filter;
    QSplitter* splitter;
    QLabel* counts;
    QLabel* server;
    QPointer<NewJobDialog> dialog;

    QueueSnapshot now;  // without the rows, which the model has
    QString directory;
    JobKey wanted;  // to be selected when it is in the queue
    bool first = true;

private:
    ActionSituation situation() const;
    void build();
    QWidget* makeBar();
    QWidget* makeFoot();
    void connectActions();
    void connectViews();
    void selectWanted();
};

#endif

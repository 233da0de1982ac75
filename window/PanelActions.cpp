#include "window/PanelActions.h"

#include "window/StateLook.h"

#include <QCoreApplication>
#include <QWidget>
#include <algorithm>

struct ActionText {
    const char* name;
    const char* toolTip;
    const char* icon;
    const char* key;
};

// In the order of ZoJobPanel::Action.
static const ActionText TEXTS[ZoJobPanel::ACTIONS] = {
    { QT_TRANSLATE_NOOP("PanelActions", "&New job \u2026"),
      QT_TRANSLATE_NOOP("PanelActions", "Puts a command or a script into the queue"), "new",
      "Ctrl+N" },
    { QT_TRANSLATE_NOOP("PanelActions", "Run &all"),
      QT_TRANSLATE_NOOP("PanelActions", "Runs the waiting jobs, one after another"), "run-all",
      "Ctrl+R" },
    { QT_TRANSLATE_NOOP("PanelActions", "Run &this"),
      QT_TRANSLATE_NOOP("PanelActions", "Runs the selected job alone, before the others"), "run",
      "Ctrl+Shift+R" },
    { QT_TRANSLATE_NOOP("PanelActions", "&Kill \u2026"),
      QT_TRANSLATE_NOOP("PanelActions",
                        "Ends a running job with all that it has started; a waiting one will "
                        "not run"),
      "kill", "Ctrl+K" },
    { QT_TRANSLATE_NOOP("PanelActions", "&Remove \u2026"),
      QT_TRANSLATE_NOOP("PanelActions",
                        "Takes the selected jobs out of the queue and deletes their directories"),
      "remove", "Del" },
    { QT_TRANSLATE_NOOP("PanelActions", "Remove &finished \u2026"),
      QT_TRANSLATE_NOOP("PanelActions",
                        "Removes what is done or was killed; jobs that failed stay"),
      "sweep", "" },
    { QT_TRANSLATE_NOOP("PanelActions", "&Submit again"),
      QT_TRANSLATE_NOOP("PanelActions", "Queues the selected jobs anew, with the same command, "
                                        "directory and environment; brings back what was "
                                        "killed while it waited"),
      "again", "Ctrl+Shift+N" },
    { QT_TRANSLATE_NOOP("PanelActions", "&Copy command"),
      QT_TRANSLATE_NOOP("PanelActions", "Copies the commands of the selected jobs"), "copy",
      "Ctrl+Shift+C" },
    { QT_TRANSLATE_NOOP("PanelActions", "Copy &output"),
      QT_TRANSLATE_NOOP("PanelActions", "Copies the output that is shown, or what of it is "
                                        "selected"),
      "copy", "Ctrl+Shift+O" },
    { QT_TRANSLATE_NOOP("PanelActions", "Re&fresh"),
      QT_TRANSLATE_NOOP("PanelActions", "Reads the queue anew; it does so by itself when the queue "
                                        "changes"),
      "again", "F5" },
    { QT_TRANSLATE_NOOP("PanelActions", "Fi&lter"),
      QT_TRANSLATE_NOOP("PanelActions", "Goes to the filter line"), "", "Ctrl+F" },
};

static QString translated(const char* text)
{
    return QCoreApplication::translate("PanelActions", text);
}

static bool hasState(const ZoJobRows& jobs, ZoJobRow::State state)
{
    return std::any_of(jobs.begin(), jobs.end(),
                       [state](const ZoJobRow& job) { return job.state == state; });
}

static QString whyNotRun(const ActionSituation& now, bool all)
{
    if (!all && now.selected.size() != 1)
        return translated("Select one waiting job");
    if (!all && now.selected[0].state != ZoJobRow::WAITING)
        return translated("Only a waiting job can be run; submit it again");
    if (all && !hasState(now.queue, ZoJobRow::WAITING))
        return translated("No job is waiting");
    if (hasState(now.queue, ZoJobRow::RUNNING))
        return translated("A job is running, and only one runs at a time");
    return QString();
}

ZoJobRows killable(const ActionSituation& now)
{
    ZoJobRows jobs;
    for (const ZoJobRow& job : now.selected.isEmpty() ? now.queue : now.selected)
        if (job.state == ZoJobRow::RUNNING ||
            (job.state == ZoJobRow::WAITING && job.ours && !now.selected.isEmpty()))
            jobs.append(job);
    return jobs;
}

static QString whyNotKill(const ActionSituation& now)
{
    if (!killable(now).isEmpty())
        return QString();
    if (now.selected.isEmpty())
        return translated("No job is running");
    if (hasState(now.selected, ZoJobRow::WAITING))
        return translated("Another application made the job: while it waits it can be removed");
    return translated("The selected job neither runs nor waits");
}

static QString whyNotRemove(const ActionSituation& now)
{
    const auto stays = [](const ZoJobRow& job) { return job.state == ZoJobRow::RUNNING; };
    if (now.selected.isEmpty())
        return translated("Select the jobs to remove");
    if (std::all_of(now.selected.begin(), now.selected.end(), stays))
        return translated("A running job stays until it ends: kill it first");
    return QString();
}

static QString whyNotAgain(const ActionSituation& now)
{
    const auto foreign = [](const ZoJobRow& job) { return !job.ours; };
    if (now.selected.isEmpty())
        return translated("Select the jobs to submit again");
    if (std::any_of(now.selected.begin(), now.selected.end(), foreign))
        return translated("Another application made the job: what it needs is not known here");
    return QString();
}

static bool needsServer(ZoJobPanel::Action action)
{
    return action <= ZoJobPanel::SUBMIT_AGAIN;
}

QString whyNot(ZoJobPanel::Action action, const ActionSituation& now)
{
    if (needsServer(action) && now.server == QueueSnapshot::FOREIGN)
        return now.serverText;
    switch (action) {
    case ZoJobPanel::RUN_ALL:
        return whyNotRun(now, true);
    case ZoJobPanel::RUN:
        return whyNotRun(now, false);
    case ZoJobPanel::KILL:
        return whyNotKill(now);
    case ZoJobPanel::REMOVE:
        return whyNotRemove(now);
    case ZoJobPanel::REMOVE_FINISHED:
        return std::any_of(now.queue.begin(), now.queue.end(),
                           [](const ZoJobRow& job) { return job.hasEnded() && !job.hasFailed(); })
                   ? QString()
                   : translated("No job is done");
    case ZoJobPanel::SUBMIT_AGAIN:
        return whyNotAgain(now);
    case ZoJobPanel::COPY_COMMAND:
        return now.selected.isEmpty() ? translated("Select a job") : QString();
    case ZoJobPanel::COPY_OUTPUT:
        return now.hasOutput ? QString() : translated("No output is shown");
    default:
        return QString();
    }
}

PanelActions::PanelActions(QWidget* panel) : QObject(panel)
{
    for (int i = 0; i < ZoJobPanel::ACTIONS; ++i) {
        const ActionText& text = TEXTS[i];
        actions[i] = new QAction(drawnIcon(text.icon), translated(text.name), panel);
        actions[i]->setShortcut(QKeySequence(text.key));
        // A host application may have other uses for the same keys.
        actions[i]->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        actions[i]->setIconText(translated(text.name).remove('&').remove(" \u2026"));
        panel->addAction(actions[i]);
    }
    update(ActionSituation());
}

void PanelActions::update(const ActionSituation& situation)
{
    for (int i = 0; i < ZoJobPanel::ACTIONS; ++i) {
        const QString reason = whyNot(ZoJobPanel::Action(i), situation);
        QString text = translated(TEXTS[i].toolTip);
        const QString key = actions[i]->shortcut().toString(QKeySequence::NativeText);
        if (!key.isEmpty())
            text += " (" + key + ")";
        if (!reason.isEmpty())
            text += "\n" + translated("Not now: %1").arg(reason);
        actions[i]->setEnabled(reason.isEmpty());
        actions[i]->setToolTip(text);
        actions[i]->setStatusTip(reason);
    }
}

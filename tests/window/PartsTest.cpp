// What the window is made of, each by itself: the model, the output, the strip, what can be done
// and what is told.
#include "window/DayStrip.h"
#include "window/JobTable.h"
#include "window/OutputView.h"
#include "window/PanelActions.h"
#include "window/QueueNotices.h"
#include "window/ShownText.h"
#include "window/TerminalText.h"
#include "window/ZoJobModel.h"

#include <QAbstractItemModelTester>
#include <QDateTime>
#include <QHeaderView>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QSignalSpy>
#include <QtTest>

static ZoJobRow makeRow(int number, ZoJobRow::State state = ZoJobRow::WAITING)
{
    ZoJobRow row;
    row.id = 1700000000 + number;
    row.directory = "/jobs/" + QByteArray::number(number);
    row.name = QString::number(number);
    row.description = row.command = QString("job %1").arg(number);
    row.state = state;
    row.ours = true;
    return row;
}

/// The queue after some step of a day: jobs come, go, change, and some change places.
static ZoJobRows changed(ZoJobRows rows, QRandomGenerator& random, int& next)
{
    const int steps = random.bounded(5);
    for (int i = 0; i < steps; ++i) {
        const int at = rows.isEmpty() ? 0 : random.bounded(int(rows.size()));
        switch (rows.isEmpty() ? 0 : random.bounded(5)) {
        case 0:
        case 1:
            rows.insert(random.bounded(2) ? at : rows.size(), makeRow(next++));
            break;
        case 2:
            rows.remove(at, std::min<int>(1 + random.bounded(4), int(rows.size()) - at));
            break;
        case 3:
            rows[at].state = ZoJobRow::State(random.bounded(4));
            break;
        default:
            rows.move(at, random.bounded(int(rows.size())));
            // A damaged queue may have a job twice.
            if (random.bounded(10) == 0)
                rows.append(rows[0]);
        }
    }
    return rows;
}

/// A line as its text, with marks around what has a style.
static QString marked(const TerminalLine& line)
{
    QString text;
    for (const auto& [part, style] : line)
        text += style == TerminalStyle() ? part
                                         : QString("{%1%2%3:%4}")
                                               .arg(style.foreground)
                                               .arg(style.bold ? "b" : "")
                                               .arg(style.background >= 0 ? "B" : "")
                                               .arg(part);
    return text;
}

class PartsTest : public QObject
{
    Q_OBJECT

private slots:
    void modelFollowsAnyChangeRowByRow()
    {
        ZoJobModel model;
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        JobFilter filter(&model);
        filter.setWords("job");
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        QRandomGenerator random(7);
        ZoJobRows rows;
        int next = 1;
        for (int round = 0; round < 600; ++round) {
            const ZoJobRows before = rows;
            rows = changed(rows, random, next);
            QVector<QPersistentModelIndex> marks;
            for (int i = 0; i < before.size(); ++i)
                marks.append(model.index(i, 0));
            model.update(rows);
            QCOMPARE(model.rows(), rows);
            QCOMPARE(filter.rowCount(), int(rows.size()));
            for (int i = 0; i < before.size(); ++i) {
                const auto same = [&](const ZoJobRow& row) { return row.isSameJob(before[i]); };
                const auto twice = std::count_if(before.begin(), before.end(), same) > 1;
                if (marks[i].isValid())
                    QVERIFY(rows[marks[i].row()].isSameJob(before[i]));
                else
                    QVERIFY(twice || std::none_of(rows.begin(), rows.end(), same));
            }
        }
        QCOMPARE(resets.count(), 0);
    }

    void selectionStaysWithItsJobs()
    {
        ZoJobModel model;
        JobTable table(&model);
        table.resize(600, 200);
        ZoJobRows rows;
        for (int i = 0; i < 200; ++i)
            rows.append(makeRow(i));
        model.update(rows);
        table.selectRow(100);
        table.selectionModel()->select(table.filter->index(120, 0),
                                       QItemSelectionModel::Select | QItemSelectionModel::Rows);
        table.sortByColumn(ZoJobModel::DESCRIPTION, Qt::DescendingOrder);
        for (int i = 0; i < 500; ++i) {
            rows.append(makeRow(1000 + i));
            rows[(i * 7) % 90].state = ZoJobRow::State(i % 4);
            if (i % 9 == 0)
                rows.removeAt(i % 40);
            model.update(rows);
            const ZoJobRows selected = table.selectedJobs();
            QCOMPARE(selected.size(), 2);
            QCOMPARE(selected[0].name, QString("100"));
            QCOMPARE(selected[1].name, QString("120"));
            QCOMPARE(table.currentJob()->name, QString("100"));
        }
        QCOMPARE(table.header()->sortIndicatorSection(), int(ZoJobModel::DESCRIPTION));
    }

    void terminalTextReadsWhatCommandsPrint()
    {
        const std::pair<QByteArray, QString> cases[] = {
            { "one\ntwo\n\nfour", "one|two||four" },
            { "one\r\ntwo\r\n", "one|two|" },
            { "copy 10%\rcopy 90%\rdone\x1b[K\n", "done|" },
            { "1234567890\rabc", "abc4567890" },
            { "\x1b[31mred\x1b[0m \x1b[1;92mok\x1b[m.", "{1:red} {10b:ok}." },
            { "\x1b[38;5;208mx\x1b[39;48;2;1;2;3my", "{208:x}{-1B:y}" },
            { "\xc3\xa4\xe4\xb8\xad\xf0\x9f\x98\x80\tx", "ä中😀\tx" },
            { "a\xff\xfe b", "a\uFFFD\uFFFD b" },
            { "a\x07\x08 b\x7f", "a␇␈ b␡" },
            { "\x1b[2Jx\x1b]0;t", "␛[2Jx␛]0;t" },
            { "a\xe2\x80\xae", "a⟨U+202E⟩" },  // what follows would be read from right to left
            { "\x1b(B\x1b[mx", "x" },          // "tput sgr0" chooses a character set, too
        };
        for (const auto& [bytes, lines] : cases)
            for (int cut = 0; cut <= bytes.size(); ++cut) {  // output arrives in any pieces
                TerminalText text;
                text.take(bytes.left(cut));
                text.take(bytes.mid(cut));
                QStringList shown;
                for (const TerminalLine& line : text.ended)
                    shown += marked(line);
                shown += marked(text.current());
                QCOMPARE(shown.join('|'), lines);
            }
    }

    void outputFollowsOnlyAtItsEnd()
    {
        OutputView view;
        view.resize(300, 120);
        view.show();
        const auto scroll = [&] { return view.verticalScrollBar(); };
        for (int i = 0; i < 50; ++i)
            view.append("line " + QByteArray::number(i) + "\n");
        QCOMPARE(scroll()->value(), scroll()->maximum());
        scroll()->setValue(5);
        view.append("more\nand more");
        QCOMPARE(scroll()->value(), 5);
        QVERIFY(view.toPlainText().endsWith("more\nand more"));
        scroll()->setValue(scroll()->maximum());
        // Far more than is held: memory stays bounded.
        for (int i = 0; i < 60; ++i)
            view.append(QByteArray("a line of usual length, as most of them are\n").repeated(700));
        QVERIFY(view.blockCount() <= 20001);
        QCOMPARE(scroll()->value(), scroll()->maximum());
    }

    void textsAreShownHarmless()
    {
        QCOMPARE(visibleLine("a\nb\x1b[31m"), QString("a␊b␛[31m"));
        QCOMPARE(visibleLine(QString("x\u202Ey")), QString("x⟨U+202E⟩y"));
        QCOMPARE(visibleLine(QString("שלום 中文")), QString("שלום 中文"));
        const QString tip = plainToolTip("<b>bold</b> & <img src=x>");
        QVERIFY(!tip.contains("<b>") && !tip.contains("<img"));
        QVERIFY(!forMessage("<a href='x'>&amp;").contains('<'));
        QCOMPARE(duration(59), QString("0:59"));
        QCOMPARE(duration(3727), QString("1:02:07"));
    }

    void actionsSayWhyNot()
    {
        // "queue/selection/reason": jobs waiting, running, done and failed; indexes into them, with
        // "x" for another application's; a word of why not, none when it can be done.
        const std::pair<ZoJobPanel::Action, QStringList> table[] = {
            { ZoJobPanel::RUN_ALL, { "//waiting", "dw//", "rw//running" } },
            { ZoJobPanel::RUN, { "ww//Select", "ww/1/", "dw/0/waiting", "rw/1/running" } },
            { ZoJobPanel::KILL,
              { "ww//No job", "rw/0/", "rw//", "dw/1/", "dw/1x/Another", "dw/0/neither" } },
            { ZoJobPanel::REMOVE, { "rw//Select", "rw/0/kill", "rw/01/" } },
            { ZoJobPanel::REMOVE_FINISHED, { "rwf//done", "rwd//" } },
            { ZoJobPanel::SUBMIT_AGAIN, { "d/0/", "d/0x/Another" } },
            { ZoJobPanel::COPY_COMMAND, { "d//Select" } },
            { ZoJobPanel::NEW_JOB, { "//" } },
        };
        for (const auto& [action, cases] : table)
            for (const QString& text : cases) {
                const QStringList parts = text.split('/');
                ActionSituation now;
                for (const QChar letter : parts[0])
                    now.queue.append(makeRow(int(now.queue.size()),
                                             ZoJobRow::State(QString("wrdf").indexOf(letter))));
                for (const QChar letter : parts[1])
                    if (letter == 'x')
                        now.selected.last().ours = false;
                    else
                        now.selected.append(now.queue[letter.digitValue()]);
                const QString why = whyNot(action, now);
                QVERIFY2(parts[2].isEmpty() ? why.isEmpty() : why.contains(parts[2]),
                         qPrintable(text + ": " + why));
                now.server = QueueSnapshot::FOREIGN;
                now.serverText = "port 7160 is Eve's";
                if (action != ZoJobPanel::COPY_COMMAND)
                    QCOMPARE(whyNot(action, now), now.serverText);
            }
    }

    void noticesComeOncePerRowOfJobs()
    {
        QueueNotices notices;
        ZoJobRows rows = { makeRow(0, ZoJobRow::FAILED) };
        QVERIFY(notices.take(rows).title.isEmpty());  // from before the window was there
        for (int i = 1; i <= 20; ++i)
            rows.append(makeRow(i));
        int told = 0;
        for (int i = 1; i <= 20; ++i) {
            rows[i].state = ZoJobRow::RUNNING;
            told += !notices.take(rows).title.isEmpty();
            QVERIFY(notices.settle().title.isEmpty());
            rows[i].state = i % 4 ? ZoJobRow::DONE : ZoJobRow::FAILED;
            told += !notices.take(rows).title.isEmpty();
        }
        QCOMPARE(told, 1);  // the first failure
        const QueueNotice end = notices.settle();
        QVERIFY(end.warning);
        QCOMPARE(end.text, QString("15 done, 5 failed"));
        QVERIFY(notices.settle().title.isEmpty());
        rows.append(makeRow(21, ZoJobRow::RUNNING));
        notices.take(rows);
        rows.last().state = ZoJobRow::FAILED;
        QVERIFY(!notices.take(rows).title.isEmpty());  // the next row of jobs
        QVERIFY(notices.settle().title.isEmpty());     // of which all has been said
    }

    void stripFindsJobsAtEveryZoom()
    {
        ZoJobModel model;
        DayStrip strip(&model);
        strip.resize(800, strip.sizeHint().height());
        strip.show();
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        ZoJobRows rows;
        for (int i = 0; i < 10; ++i) {
            rows.append(makeRow(i, i == 4 ? ZoJobRow::FAILED : ZoJobRow::DONE));
            rows.last().started = now - 3600 + i * 360;
            rows.last().ended = rows.last().started + (i == 4 ? 1 : 350);
        }
        rows.append(makeRow(10));
        model.update(rows);
        QSignalSpy picked(&strip, &DayStrip::picked);
        const auto found = [&] {
            QSet<int> seen;
            for (int x = 0; x < strip.width(); ++x)
                seen.insert(strip.rowAt(QPoint(x, strip.height() / 3)));
            return seen;
        };
        for (int i = 0; i <= 10; ++i)
            QVERIFY2(found().contains(i), qPrintable(QString::number(i)));
        const QPoint place(strip.width() / 2, strip.height() / 3);
        QTest::mouseClick(&strip, Qt::LeftButton, Qt::NoModifier, place);
        QCOMPARE(picked.count(), 1);
        const int middle = picked[0][0].toInt();
        QVERIFY(middle == 4 || middle == 5);
        for (int i = 0; i < 20; ++i) {
            QWheelEvent in(place, place, QPoint(), QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
                           Qt::NoScrollPhase, false);
            QApplication::sendEvent(&strip, &in);
        }
        QCOMPARE(strip.rowAt(place), middle);
        QVERIFY(found().size() <= 3);
        QTest::mouseDClick(&strip, Qt::LeftButton);
        QVERIFY(found().size() >= 11);
        rows.resize(0);
        model.update(rows);
        QCOMPARE(strip.rowAt(place), -1);
    }
};

int main(int argc, char** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication application(argc, argv);
    PartsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "PartsTest.moc"

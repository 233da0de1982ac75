#ifndef JOBVIEW_H
#define JOBVIEW_H

#include "window/QueueLink.h"

#include <QWidget>

class OutputView;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QTabWidget;
class QToolButton;

/// One job: its output as it comes, its details, its environment.
class ZOWINDOW_EXPORT JobView : public QWidget
{
    Q_OBJECT

public:
    explicit JobView(QueueLink* queueLink, QWidget* parent = nullptr);

    /// Shows the job, or nothing. The same job again only brings its times and state up to date.
    void show(const ZoJobRow* job);

    OutputView* output;
    QTabWidget* tabs;

signals:
    /// Something could not be opened; one sentence.
    void failed(const QString& text);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* makeHeader();
    QWidget* makeOutput();
    QWidget* makeDetails();
    QLabel* addLine(QFormLayout* form, const QString& title);
    QToolButton* makeOpener(const char* name, const QString& text);

    void start();
    void showTexts();
    void showGlance();
    void takeOutput(const OutputPiece& piece);
    void takeDetails(const JobDetails& details);
    void wantMore();
    void open(const QByteArray& path);

    QueueLink* link;
    ZoJobRow row;
    JobDetails details;
    bool shown = false;   // there is a job
    bool paused = false;  // nobody sees what would be read
    int serial = 0;       // of the output that is shown

    QLabel *icon, *title, *state, *glance, *notice;
    QLabel *submitted, *started, *ended, *time, *status, *identity;
    QLineEdit *workDirectory, *directory;
    QPlainTextEdit *script, *environment;
    QToolButton *openWorkDirectory, *openDirectory, *openOutput;
};

#endif

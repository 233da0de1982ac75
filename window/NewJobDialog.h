#ifndef NEWJOBDIALOG_H
#define NEWJOBDIALOG_H

#include "window/QueueLink.h"

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

/// Asks for a job and submits it. It closes when the job is in the queue; what was typed stays
/// until then, whatever goes wrong.
class ZOWINDOW_EXPORT NewJobDialog : public QDialog
{
    Q_OBJECT

public:
    NewJobDialog(QueueLink* queueLink, const QString& startDirectory, QWidget* parent = nullptr);

    QPlainTextEdit* command;
    QLineEdit* directory;
    QLineEdit* label;
    QCheckBox* run;
    QLabel* problem;
    QPushButton* submitButton;

    /// Whether the answer to this request is shown here.
    bool isWaitingFor(int number) const { return number == request || number == answered; }

    QString chosenDirectory() const;

    /// As the submit button.
    void submit();

signals:
    /// The job is in the queue; the text says what else is to be known, mostly nothing.
    void submitted(const JobKey& job, const QString& text);

private:
    void makeFields();
    void chooseDirectory();
    void loadScript();
    void check();
    void setBusy(bool on);
    void take(const Answer& answer);

    QueueLink* link;
    int request = 0;   // that has not been answered
    int answered = 0;  // the last one that has been
};

#endif

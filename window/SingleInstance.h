#ifndef SINGLEINSTANCE_H
#define SINGLEINSTANCE_H

#include <QLockFile>
#include <QObject>

class QLocalServer;

/// Lets one program of a kind run in a session of the desktop; a second one has the first come to
/// the front.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    enum Place { FIRST, SECOND, UNANSWERED };  ///< UNANSWERED: the first one does not react

    explicit SingleInstance(const QString& name);
    ~SingleInstance() override;

    /// Which one this is. A second one has called the first when this returns.
    Place begin();

signals:
    void called();

private:
    Place call() const;

    QString socket;
    QLockFile lock;
    QLocalServer* server = nullptr;
};

#endif

#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QLocalServer;

namespace quorval {

class AppDelegate;

// Opens sound files handed to the application from outside: named on the command line, dropped
// on the window, or opened from the file manager while Quorval already runs (the new launch
// sends its files to the running one over a local socket and ends). A file that arrives before
// start-up has finished is opened after it. Main thread only.
class Document : public QObject
{
    Q_OBJECT

public:
    explicit Document(AppDelegate &appDelegate, QObject *parent = nullptr);

    // Hands path to the delegate's open-file routine; false when it could not be read.
    bool readFromURL(const QString &path);

    // Starts taking files from later launches. False when another instance already listens.
    bool listen();

    // Sends paths (made absolute) to a running instance; false when none answers.
    static bool sendToRunningInstance(const QStringList &paths);
    // The local socket's name: one per user.
    static QString serverName();

private:
    void acceptConnection();

    AppDelegate &delegate;
    QLocalServer *server = nullptr;
};

} // namespace quorval

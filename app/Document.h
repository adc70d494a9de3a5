#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <deque>
#include <optional>

namespace quorval {

class AppDelegate;
class HandoverServer;

// Opens sound files handed to the application from outside: named on the command line, dropped
// on the window, or opened from the file manager while Quorval already runs (the new launch
// sends its files to the running one over a socket in the user's private runtime folder, see
// HandoverServer, and ends). A file that arrives before start-up has finished is opened after
// it.
//
// Files handed over are queued and opened one at a time from the event loop, each after the
// modified-sound check: a question already showing is answered first, and nothing of the
// connection they came through is held while one shows. Main thread only.
class Document : public QObject
{
    Q_OBJECT

public:
    // At most this many handed-over files wait; later ones are dropped with a line on stderr.
    static constexpr std::size_t kMaxWaiting = 16;
    // How often files handed over look again whether a question is still showing.
    static constexpr std::chrono::milliseconds kModalPoll{200};

    explicit Document(AppDelegate &appDelegate, QObject *parent = nullptr);

    // Hands path to the delegate's open-file routine; false when it could not be read. What is
    // not a regular file, readable, is refused here with a message saying why, without opening
    // it (a FIFO would block).
    bool readFromURL(const QString &path);

    // Starts taking files from later launches. False when another instance already listens, or
    // when the socket cannot be made (stderr says why).
    bool listen();

    // Sends paths (made absolute) to a running instance; false when none answers.
    static bool sendToRunningInstance(const QStringList &paths);
    // The socket's path in the user's private runtime folder; empty when there is no such
    // folder.
    static QString serverName();

private:
    void handOver(const QStringList &paths);
    void openNextHandedOver();

    AppDelegate &delegate;
    HandoverServer *server = nullptr;
    std::deque<QString> waiting;
    bool opening = false;
};

} // namespace quorval

#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace quorval {

// The socket through which a later launch hands its files to the running window.
//
// It lives in the user's private runtime folder (privateFolder): nobody else can plant it, read
// what passes through it or connect to it. Both ends check who is at the other: the sender
// connects only to a socket the user owns, the server takes only connections from processes of
// the same user (their credentials, as the kernel gives them).
//
// Protocol: the sender writes each path percent-encoded (slashes kept) on a line of its own, then
// an empty line; the server answers "ok" once it has taken them. What the server will hold is
// bounded: kMaxConnections at once (later ones are closed at once, so the sender knows to open its
// own window), kMaxMessageBytes and kMaxPaths per connection, and a timeout (kTimeout) from
// connection to the empty line; a connection past any bound is dropped and nothing of it is used.
//
// Main thread only.
class HandoverServer : public QObject
{
    Q_OBJECT

public:
    static constexpr int kMaxConnections = 8;
    static constexpr qint64 kMaxMessageBytes = 64 * 1024;
    static constexpr int kMaxPaths = 16;
    static constexpr std::chrono::milliseconds kTimeout{5000};

    // timeout: how long a connection may take to end its message.
    explicit HandoverServer(QObject *parent = nullptr,
                            std::chrono::milliseconds timeout = kTimeout);
    ~HandoverServer() override;

    // Listens at path. Our own socket left by a window that died is replaced; a live one belongs
    // to a running window (false). Anything else at path, or a failure, is refused with a line
    // on stderr saying what is in the way (false).
    bool listen(const QString &path);
    // The connections held now (never more than kMaxConnections).
    [[nodiscard]] int connections() const { return live; }

    // Hands paths (as given) to the server at path: true once it answered that it took them.
    // False when nothing of this user's listens there, it refused, or it did not answer within
    // kTimeout.
    static bool send(const QString &path, const QStringList &paths);

    // The window's socket in the user's private runtime folder; empty when there is no such
    // folder.
    static QString windowSocketPath();
    // Sends paths (made absolute) to a running window; false when none answers.
    static bool sendToRunningWindow(const QStringList &paths);

    // The user's private runtime folder: XDG_RUNTIME_DIR when it is a folder of the user's own
    // with mode 0700; else <temp>/quorval-<uid>, made 0700 when missing. Nothing when that one
    // is not a folder of the user's own with mode 0700 (a link, another user's, open to others);
    // stderr then says so, once per run.
    static std::optional<QString> privateFolder();
    // Whether path is a socket owned by this user (never following a link).
    static bool isOwnSocket(const QString &path);

signals:
    // The paths of one connection that ended as the protocol says, after it was closed.
    void received(const QStringList &paths);

private:
    class Server;
    class Connection;

    void take(Connection *connection);
    void close(Connection *connection);

    Server *server;
    std::chrono::milliseconds timeout;
    int live = 0;
    bool saidBusy = false;
};

} // namespace quorval

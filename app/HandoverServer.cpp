#include "app/HandoverServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

#include <cstdio>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quorval {

namespace {

// A folder of this user's that no one else may enter; never a link.
bool isPrivateFolder(const QByteArray &path)
{
    struct stat info = {};
    return ::lstat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode) &&
           info.st_uid == ::geteuid() && (info.st_mode & 0777) == 0700;
}

int milliseconds(QDeadlineTimer deadline)
{
    return static_cast<int>(qMax<qint64>(0, deadline.remainingTime()));
}

} // namespace

// Takes a connection only from a process of this user's, and only while fewer than
// kMaxConnections are held: refused ones are closed before Qt makes a socket of them, so a flood
// costs no descriptors.
class HandoverServer::Server : public QLocalServer
{
public:
    explicit Server(HandoverServer &owner) : QLocalServer(&owner), owner(owner) {}

protected:
    void incomingConnection(quintptr descriptor) override
    {
        const int fd = static_cast<int>(descriptor);
        ucred peer = {};
        socklen_t size = sizeof peer;
        if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
            peer.uid != ::geteuid()) {
            std::fprintf(stderr, "quorval: refused a file handed over by user %u\n",
                         static_cast<unsigned>(peer.uid));
            ::close(fd);
            return;
        }
        if (owner.live >= kMaxConnections) {
            if (!std::exchange(owner.saidBusy, true))
                std::fputs("quorval: too many launches at once; they open their own windows\n",
                           stderr);
            ::close(fd);
            return;
        }
        QLocalServer::incomingConnection(descriptor);
    }

private:
    HandoverServer &owner;
};

// One sender's connection: what it sent so far and the time it has left.
class HandoverServer::Connection : public QObject
{
public:
    Connection(QLocalSocket *socket, HandoverServer &owner) : QObject(&owner), socket(socket)
    {
        socket->setParent(this);
        // Qt reads no further than this ahead, so a sender that never ends a line costs no more.
        socket->setReadBufferSize(kMaxMessageBytes);
        deadline.setSingleShot(true);
    }

    QLocalSocket *socket;
    QTimer deadline{this};
    QStringList paths;
    qint64 bytes = 0;
    bool closed = false;
};

HandoverServer::HandoverServer(QObject *parent, std::chrono::milliseconds timeout)
    : QObject(parent), server(new Server(*this)), timeout(timeout)
{
    server->setMaxPendingConnections(kMaxConnections);
    connect(server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = server->nextPendingConnection())
            take(new Connection(socket, *this));
    });
}

HandoverServer::~HandoverServer() = default;

bool HandoverServer::listen(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info = {};
    if (::lstat(name.constData(), &info) == 0) {
        if (!isOwnSocket(path)) {
            std::fprintf(stderr,
                         "quorval: %s is in the way of the socket through which later launches "
                         "hand over their files; remove it\n",
                         name.constData());
            return false;
        }
        QLocalSocket probe;
        probe.connectToServer(path);
        if (probe.waitForConnected(static_cast<int>(kTimeout.count())))
            return false;
        // Our own, left by a window that died: nobody answers there any more.
        (void)::unlink(name.constData());
    }
    if (!server->listen(path)) {
        std::fprintf(stderr, "quorval: can't take files from later launches at %s: %s\n",
                     name.constData(), server->errorString().toLocal8Bit().constData());
        return false;
    }
    return true;
}

void HandoverServer::take(Connection *connection)
{
    ++live;
    saidBusy = false;
    QLocalSocket *socket = connection->socket;
    connect(socket, &QLocalSocket::disconnected, connection, [this, connection] {
        // Gone before the empty line: what came may be cut short, so none of it is used.
        close(connection);
    });
    connect(&connection->deadline, &QTimer::timeout, connection,
            [this, connection] { close(connection); });
    connect(socket, &QLocalSocket::readyRead, connection, [this, connection] {
        QLocalSocket *socket = connection->socket;
        while (socket->canReadLine()) {
            const QByteArray line = socket->readLine();
            connection->bytes += line.size();
            const QByteArray text = line.chopped(1);
            if (connection->bytes > kMaxMessageBytes ||
                (!text.isEmpty() && connection->paths.size() == kMaxPaths)) {
                close(connection);
                return;
            }
            if (text.isEmpty()) {
                socket->write("ok\n");
                socket->flush();
                const QStringList paths = connection->paths;
                close(connection);
                emit received(paths);
                return;
            }
            connection->paths.append(QFile::decodeName(QByteArray::fromPercentEncoding(text)));
        }
        if (connection->bytes + socket->bytesAvailable() >= kMaxMessageBytes)
            close(connection);
    });
    connection->deadline.start(timeout);
}

void HandoverServer::close(Connection *connection)
{
    if (std::exchange(connection->closed, true))
        return;
    --live;
    connection->deadline.stop();
    QObject::disconnect(connection->socket, nullptr, connection, nullptr);
    // At once, not at the next turn of the event loop: the descriptor is what is bounded.
    connection->socket->abort();
    connection->deleteLater();
}

bool HandoverServer::send(const QString &path, const QStringList &paths)
{
    if (!isOwnSocket(path))
        return false;
    const QDeadlineTimer deadline(kTimeout);
    QLocalSocket socket;
    socket.connectToServer(path);
    if (!socket.waitForConnected(milliseconds(deadline)))
        return false;
    QByteArray message;
    for (const QString &each : paths)
        message += QFile::encodeName(each).toPercentEncoding("/") + '\n';
    socket.write(message + '\n');
    (void)socket.waitForBytesWritten(milliseconds(deadline));
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(milliseconds(deadline)))
            return false;
    }
    return socket.readLine() == "ok\n";
}

std::optional<QString> HandoverServer::privateFolder()
{
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && isPrivateFolder(runtime))
        return QFile::decodeName(runtime);
    const QByteArray own = QFile::encodeName(QDir::tempPath() + QStringLiteral("/quorval-") +
                                             QString::number(::geteuid()));
    // Made here, it is ours: the mode is set whatever the umask.
    if (::mkdir(own.constData(), 0700) == 0)
        (void)::chmod(own.constData(), 0700);
    if (isPrivateFolder(own))
        return QFile::decodeName(own);
    static bool said = false;
    if (!std::exchange(said, true))
        std::fprintf(stderr,
                     "quorval: %s is not a folder of this user's that only this user may enter "
                     "(a link, another user's, or open to others); files opened while Quorval "
                     "runs open in new windows\n",
                     own.constData());
    return std::nullopt;
}

bool HandoverServer::isOwnSocket(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISSOCK(info.st_mode) &&
           info.st_uid == ::geteuid();
}

QString HandoverServer::windowSocketPath()
{
    const std::optional<QString> folder = privateFolder();
    return folder ? *folder + QStringLiteral("/quorval-handover") : QString();
}

bool HandoverServer::sendToRunningWindow(const QStringList &paths)
{
    const QString path = windowSocketPath();
    if (path.isEmpty())
        return false;
    QStringList absolute;
    for (const QString &each : paths)
        absolute.append(QFileInfo(each).absoluteFilePath());
    return send(path, absolute);
}

} // namespace quorval

#include "app/Document.h"

#include "app/AppDelegate.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMainWindow>

namespace quorval {

namespace {

constexpr int kTimeoutMs = 1000;

} // namespace

Document::Document(AppDelegate &appDelegate, QObject *parent)
    : QObject(parent), delegate(appDelegate)
{
}

bool Document::readFromURL(const QString &path)
{
    return delegate.openFile(path);
}

QString Document::serverName()
{
    const QString user = qEnvironmentVariable("USER", QStringLiteral("user"));
    return QStringLiteral("quorval-") + user;
}

bool Document::listen()
{
    server = new QLocalServer(this);
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(serverName())) {
        // A socket left by an instance that died answers no one: take its place.
        QLocalSocket probe;
        probe.connectToServer(serverName());
        if (probe.waitForConnected(kTimeoutMs))
            return false;
        QLocalServer::removeServer(serverName());
        if (!server->listen(serverName()))
            return false;
    }
    connect(server, &QLocalServer::newConnection, this, &Document::acceptConnection);
    return true;
}

void Document::acceptConnection()
{
    while (QLocalSocket *socket = server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            // One path per line; the sender closes after the last.
            while (socket->canReadLine()) {
                const QString path = QString::fromUtf8(socket->readLine()).trimmed();
                if (path.isEmpty())
                    continue;
                delegate.window->raise();
                delegate.window->activateWindow();
                if (delegate.shouldDiscardModifiedSound())
                    (void)readFromURL(path);
            }
        });
    }
}

bool Document::sendToRunningInstance(const QStringList &paths)
{
    QLocalSocket socket;
    socket.connectToServer(serverName());
    if (!socket.waitForConnected(kTimeoutMs))
        return false;
    for (const QString &path : paths)
        socket.write(QFileInfo(path).absoluteFilePath().toUtf8() + '\n');
    const bool sent = socket.waitForBytesWritten(kTimeoutMs);
    socket.disconnectFromServer();
    return sent;
}

} // namespace quorval

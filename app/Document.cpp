#include "app/Document.h"

#include "app/AppDelegate.h"
#include "app/HandoverServer.h"
#include "options/Messages.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QMainWindow>
#include <QTimer>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace quorval {

namespace {

// Why path cannot be opened as a sound, found without opening it; nothing when it can.
std::optional<QString> whyNotASoundFile(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info = {};
    if (::stat(name.constData(), &info) != 0) {
        switch (errno) {
        case ENAMETOOLONG:
            return QStringLiteral("its name is too long");
        case EACCES:
            return QStringLiteral("its folder may not be read");
        default:
            return QStringLiteral("there is no such file");
        }
    }
    if (S_ISDIR(info.st_mode))
        return QStringLiteral("it is a folder");
    if (!S_ISREG(info.st_mode))
        return QStringLiteral("it is not a file but a device, pipe or socket");
    if (::access(name.constData(), R_OK) != 0)
        return QStringLiteral("you may not read it");
    return std::nullopt;
}

} // namespace

Document::Document(AppDelegate &appDelegate, QObject *parent)
    : QObject(parent), delegate(appDelegate)
{
}

bool Document::readFromURL(const QString &path)
{
    if (const std::optional<QString> why = whyNotASoundFile(path)) {
        showMessage(QString(), QStringLiteral("Can't read sound file %1: %2")
                                   .arg(quotedForMessage(QFileInfo(path).fileName()), *why));
        return false;
    }
    return delegate.openFile(path);
}

QString Document::serverName()
{
    const std::optional<QString> folder = HandoverServer::privateFolder();
    return folder ? *folder + QStringLiteral("/quorval-handover") : QString();
}

bool Document::listen()
{
    const QString path = serverName();
    if (path.isEmpty())
        return false;
    if (!server) {
        server = new HandoverServer(this);
        connect(server, &HandoverServer::received, this, &Document::handOver);
    }
    return server->listen(path);
}

void Document::handOver(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (waiting.size() == kMaxWaiting) {
            std::fprintf(stderr, "quorval: too many files handed over at once; %s is not opened\n",
                         QFile::encodeName(path).constData());
            continue;
        }
        waiting.push_back(path);
    }
    // From the event loop: the connection's own handler has returned before any question shows.
    QMetaObject::invokeMethod(this, &Document::openNextHandedOver, Qt::QueuedConnection);
}

void Document::openNextHandedOver()
{
    // A question showing runs the event loop: files arriving meanwhile wait for its answer,
    // whoever asked it (this path, the start-up, a menu command).
    if (opening || waiting.empty())
        return;
    if (QApplication::activeModalWidget() != nullptr) {
        QTimer::singleShot(kModalPoll, this, &Document::openNextHandedOver);
        return;
    }
    opening = true;
    const QString path = waiting.front();
    waiting.pop_front();
    delegate.window->raise();
    delegate.window->activateWindow();
    if (delegate.shouldDiscardModifiedSound())
        (void)readFromURL(path);
    opening = false;
    if (!waiting.empty())
        QMetaObject::invokeMethod(this, &Document::openNextHandedOver, Qt::QueuedConnection);
}

bool Document::sendToRunningInstance(const QStringList &paths)
{
    const QString path = serverName();
    if (path.isEmpty())
        return false;
    QStringList absolute;
    for (const QString &each : paths)
        absolute.append(QFileInfo(each).absoluteFilePath());
    return HandoverServer::send(path, absolute);
}

} // namespace quorval

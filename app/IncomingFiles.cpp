#include "app/IncomingFiles.h"

#include <QApplication>
#include <QFile>
#include <QTimer>

#include <cstdio>
#include <utility>

namespace quorval {

IncomingFiles::IncomingFiles(std::function<void(const QString &)> opener, QObject *parent)
    : QObject(parent), open(std::move(opener))
{
}

void IncomingFiles::add(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (waiting.size() == kMaxWaiting) {
            std::fprintf(stderr, "quorval: too many files handed over at once; %s is not opened\n",
                         QFile::encodeName(path).constData());
            continue;
        }
        waiting.push_back(path);
    }
    QMetaObject::invokeMethod(this, &IncomingFiles::openNext, Qt::QueuedConnection);
}

void IncomingFiles::start()
{
    started = true;
    QMetaObject::invokeMethod(this, &IncomingFiles::openNext, Qt::QueuedConnection);
}

void IncomingFiles::openNext()
{
    // A dialog showing runs the event loop: files arriving meanwhile wait for its answer,
    // whoever asked it (this path, the start-up, a menu command).
    if (!started || opening || waiting.empty())
        return;
    if (QApplication::activeModalWidget() != nullptr) {
        QTimer::singleShot(kModalPoll, this, &IncomingFiles::openNext);
        return;
    }
    opening = true;
    const QString path = waiting.front();
    waiting.pop_front();
    open(path);
    opening = false;
    if (!waiting.empty())
        QMetaObject::invokeMethod(this, &IncomingFiles::openNext, Qt::QueuedConnection);
}

} // namespace quorval

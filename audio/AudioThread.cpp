#include "audio/AudioThread.h"

#include "analysis/Check.h"

#include <QMetaObject>

namespace quorval {

AudioThread::AudioThread(const char *name) : anchor(new QObject)
{
    thread.setObjectName(QString::fromLatin1(name));
    anchor->moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, anchor, &QObject::deleteLater);
    thread.start();
}

AudioThread::~AudioThread()
{
    thread.quit();
    thread.wait();
}

bool AudioThread::isCurrent() const
{
    return QThread::currentThread() == &thread;
}

void AudioThread::run(const std::function<void()> &fn)
{
    if (isCurrent()) {
        fn();
        return;
    }
    const bool posted = QMetaObject::invokeMethod(
        anchor, [&fn] { fn(); }, Qt::BlockingQueuedConnection);
    QUORVAL_CHECK(posted);
}

void AudioThread::post(std::function<void()> fn)
{
    QMetaObject::invokeMethod(anchor, std::move(fn), Qt::QueuedConnection);
}

} // namespace quorval

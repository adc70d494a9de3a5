#include "audio/AudioThread.h"

#include "analysis/Check.h"

#include <QMetaObject>

#include <condition_variable>
#include <mutex>

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
    // The hand-over both ways goes through a mutex of our own rather than only through Qt's
    // blocking connection, whose wait ThreadSanitizer cannot see inside the system's Qt: what
    // the caller wrote before is fn's to read, and what fn wrote is the caller's after.
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    std::unique_lock lock(mutex);
    const bool posted = QMetaObject::invokeMethod(
        anchor,
        [&] {
            const std::lock_guard running(mutex);
            fn();
            done = true;
            finished.notify_one();
        },
        Qt::QueuedConnection);
    QUORVAL_CHECK(posted);
    finished.wait(lock, [&done] { return done; });
}

void AudioThread::post(std::function<void()> fn)
{
    QMetaObject::invokeMethod(anchor, std::move(fn), Qt::QueuedConnection);
}

} // namespace quorval

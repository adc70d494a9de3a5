#pragma once

#include <QObject>
#include <QThread>

#include <functional>

namespace quorval {

// A thread with a Qt event loop for the audio objects, which deliver their data and state
// changes through it. Objects made by run() live there and must be deleted there too.
// Not copyable; the destructor quits the loop and joins.
class AudioThread
{
public:
    explicit AudioThread(const char *name);
    ~AudioThread();
    AudioThread(const AudioThread &) = delete;
    AudioThread &operator=(const AudioThread &) = delete;

    // Runs fn on the audio thread and returns once it has run. Any other thread.
    void run(const std::function<void()> &fn);
    // Posts fn to the audio thread and returns at once. Any thread.
    void post(std::function<void()> fn);
    // The object whose thread affinity is the audio thread, as parent or context.
    [[nodiscard]] QObject *context() { return anchor; }
    [[nodiscard]] bool isCurrent() const;

private:
    QThread thread;
    QObject *anchor; // lives on thread; deleted there when it finishes
};

} // namespace quorval

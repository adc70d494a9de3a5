#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <functional>

namespace quorval::test {

// Runs the main queue's posted work until condition holds or timeoutMs pass; answers condition.
inline bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 10000)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

} // namespace quorval::test

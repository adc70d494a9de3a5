#include "streams/Warnings.h"

#include "options/Messages.h"

#include <mutex>
#include <utility>

namespace quorval {

namespace {

std::mutex warningMutex;
WarningHandler warningHandler; // guarded by warningMutex

} // namespace

void showWarning(const QString &text)
{
    WarningHandler handler;
    {
        std::lock_guard lock(warningMutex);
        handler = warningHandler;
    }
    if (handler)
        handler(text);
    else
        showMessage(QStringLiteral("Warning"), text);
}

WarningHandler setWarningHandler(WarningHandler handler)
{
    std::lock_guard lock(warningMutex);
    return std::exchange(warningHandler, std::move(handler));
}

} // namespace quorval

#include "options/Messages.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace quorval {

namespace {

std::mutex &handlerMutex()
{
    static std::mutex mutex;
    return mutex;
}

MessageHandler &installedHandler()
{
    static MessageHandler handler;
    return handler;
}

} // namespace

void showMessage(const QString &title, const QString &text, const QString &detail)
{
    MessageHandler handler;
    {
        std::lock_guard lock(handlerMutex());
        handler = installedHandler();
    }
    // Called outside the lock: a handler may itself show a message.
    if (handler) {
        handler(title, text, detail);
        return;
    }
    QString line = title + QStringLiteral(": ") + text;
    if (!detail.isEmpty())
        line += QStringLiteral(": ") + detail;
    std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
}

MessageHandler setMessageHandler(MessageHandler handler)
{
    std::lock_guard lock(handlerMutex());
    return std::exchange(installedHandler(), std::move(handler));
}

QString quotedForMessage(const QString &text, qsizetype maxChars)
{
    QString shown = text.size() > maxChars ? text.left(maxChars) + QChar(0x2026) : text;
    // Line ends and other controls would break the message's own lines.
    for (QChar &c : shown) {
        if (c.category() == QChar::Other_Control)
            c = QChar(0xFFFD);
    }
    return QLatin1Char('"') + shown + QLatin1Char('"');
}

} // namespace quorval

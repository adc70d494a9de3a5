#include "options/OptionStore.h"

#include <QSettings>

namespace quorval::OptionStore {

namespace {

// Named explicitly rather than through QCoreApplication, so the store is the same whoever
// set up the application object, and also without one (command-line tools).
QSettings settings()
{
    return QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval"));
}

} // namespace

std::optional<QString> text(const QString &key)
{
    const QVariant value = settings().value(key);
    if (!value.isValid())
        return std::nullopt;
    return value.toString();
}

void setText(const QString &key, const QString &text)
{
    settings().setValue(key, text);
}

void remove(const QString &key)
{
    settings().remove(key);
}

bool isWritable(QString &fileName)
{
    const QSettings store = settings();
    fileName = store.fileName();
    return store.isWritable();
}

void usePrivateStore(const QString &folder)
{
    for (const auto format : {QSettings::NativeFormat, QSettings::IniFormat})
        for (const auto scope : {QSettings::UserScope, QSettings::SystemScope})
            QSettings::setPath(format, scope, folder);
}

} // namespace quorval::OptionStore

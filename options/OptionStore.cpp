#include "options/OptionStore.h"

#include <QCoreApplication>
#include <QHash>
#include <QSettings>
#include <QThread>

#include <mutex>
#include <shared_mutex>

namespace quorval::OptionStore {

namespace {

// Named explicitly rather than through QCoreApplication, so the store is the same whoever
// set up the application object, and also without one (command-line tools).
QSettings settings()
{
    return QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval"));
}

struct Cache
{
    std::shared_mutex mutex;
    bool loaded = false;
    QHash<QString, QString> values;
};

Cache &cache()
{
    // Never destroyed: work queues may still read options while the program exits.
    static Cache *const c = new Cache;
    return *c;
}

// With the cache's lock held for writing.
void loadLocked(Cache &c)
{
    if (c.loaded)
        return;
    const QSettings store = settings();
    for (const QString &key : store.allKeys())
        c.values.insert(key, store.value(key).toString());
    c.loaded = true;
}

void forget()
{
    Cache &c = cache();
    std::unique_lock lock(c.mutex);
    c.loaded = false;
    c.values.clear();
}

void signalChange(const QString &key)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        emit changes().changed(key);
        return;
    }
    QMetaObject::invokeMethod(
        app, [key] { emit changes().changed(key); }, Qt::QueuedConnection);
}

} // namespace

std::optional<QString> text(const QString &key)
{
    Cache &c = cache();
    {
        std::shared_lock lock(c.mutex);
        if (c.loaded) {
            const auto it = c.values.constFind(key);
            return it == c.values.cend() ? std::nullopt : std::optional<QString>(*it);
        }
    }
    std::unique_lock lock(c.mutex);
    loadLocked(c);
    const auto it = c.values.constFind(key);
    return it == c.values.cend() ? std::nullopt : std::optional<QString>(*it);
}

bool setText(const QString &key, const QString &text)
{
    Cache &c = cache();
    {
        std::unique_lock lock(c.mutex);
        loadLocked(c);
        const auto it = c.values.constFind(key);
        if (it != c.values.cend() && *it == text)
            return false;
        c.values.insert(key, text);
        // Written under the lock, so the file holds the last value set whatever the threads.
        settings().setValue(key, text);
    }
    signalChange(key);
    return true;
}

bool remove(const QString &key)
{
    Cache &c = cache();
    {
        std::unique_lock lock(c.mutex);
        loadLocked(c);
        if (!c.values.remove(key))
            return false;
        settings().remove(key);
    }
    signalChange(key);
    return true;
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
    forget();
}

void reload()
{
    forget();
}

OptionChanges &changes()
{
    static OptionChanges *const changes = [] {
        auto *object = new OptionChanges;
        if (QCoreApplication *app = QCoreApplication::instance())
            object->moveToThread(app->thread());
        return object;
    }();
    return *changes;
}

} // namespace quorval::OptionStore

#include "app/RecentFiles.h"

#include <QAction>
#include <QFileInfo>
#include <QMenu>
#include <QSettings>

namespace quorval {

namespace {

QSettings windowSettings()
{
    return QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval"));
}

} // namespace

RecentFiles::RecentFiles(QWidget *parent)
    : QObject(parent), recentMenu(new QMenu(tr("Recent Files"), parent))
{
    showInMenu(paths());
}

QStringList RecentFiles::paths() const
{
    return windowSettings().value(QLatin1String(kRecentFilesKey)).toStringList();
}

void RecentFiles::remember(const QString &path)
{
    QStringList recent = paths();
    recent.removeAll(path);
    recent.prepend(path);
    while (recent.size() > kRecentFiles)
        recent.removeLast();
    store(recent);
}

void RecentFiles::forget(const QString &path)
{
    QStringList recent = paths();
    if (recent.removeAll(path) > 0)
        store(recent);
}

void RecentFiles::store(const QStringList &recent)
{
    windowSettings().setValue(QLatin1String(kRecentFilesKey), recent);
    showInMenu(recent);
}

void RecentFiles::showInMenu(const QStringList &recent)
{
    recentMenu->clear();
    for (const QString &path : recent) {
        QAction *item = recentMenu->addAction(QFileInfo(path).fileName());
        item->setToolTip(path);
        connect(item, &QAction::triggered, this, [this, path] { emit chosen(path); });
    }
    recentMenu->setEnabled(!recent.isEmpty());
}

} // namespace quorval

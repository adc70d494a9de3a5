#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QMenu;
class QWidget;

namespace quorval {

// The files opened or saved last, newest first, kept in the user's settings for the next start,
// and the menu that offers them. Main thread only.
class RecentFiles : public QObject
{
    Q_OBJECT

public:
    static constexpr int kRecentFiles = 10;
    // The settings key of the list.
    static constexpr const char *kRecentFilesKey = "Window/RecentFiles";

    // The menu is made with parent as its parent.
    explicit RecentFiles(QWidget *parent);

    [[nodiscard]] QMenu *menu() const { return recentMenu; }
    [[nodiscard]] QStringList paths() const;

    // Puts path (absolute) first.
    void remember(const QString &path);
    // Takes path off the list (a file that can no longer be read).
    void forget(const QString &path);

signals:
    // A file of the list was chosen from the menu.
    void chosen(const QString &path);

private:
    void store(const QStringList &recent);
    void showInMenu(const QStringList &recent);

    QMenu *recentMenu;
};

} // namespace quorval

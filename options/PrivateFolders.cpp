#include "options/PrivateFolders.h"

#include <QDir>
#include <QFile>

namespace quorval {

PrivateFolders::PrivateFolders()
{
    const QDir dir(folder.path());
    if (!folder.isValid() || !dir.mkpath(QStringLiteral("work")))
        return;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(user()));
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(system()));
    qputenv("TMPDIR", QFile::encodeName(dir.filePath(QStringLiteral("work"))));
    valid = true;
}

QString PrivateFolders::user() const
{
    return folder.filePath(QStringLiteral("user"));
}

QString PrivateFolders::system() const
{
    return folder.filePath(QStringLiteral("system"));
}

} // namespace quorval

#include "options/OptionsFile.h"

#include "options/Messages.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "options/PropertyList.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <cstdio>

namespace quorval::OptionsFile {

namespace {

const QString kErrorTitle = QStringLiteral("Error");
// Kept in the store beside the options, so the earlier preferences are imported only once.
const QString kEarlierPreferencesImportedKey = QStringLiteral("Earlier preferences imported");

bool writeFailed(const QString &reason)
{
    const QString text = QStringLiteral("Can't write options file: ") + reason;
    std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    showMessage(kErrorTitle, text);
    return false;
}

// Imports the dictionary of the file at path; shows failureText when it is missing or no
// dictionary.
bool importFile(Parameters &parameters, const QString &path, const QString &failureText)
{
    const std::optional<QVariantMap> dictionary = PropertyList::readDictionaryFile(path);
    if (!dictionary) {
        showMessage(kErrorTitle, failureText);
        return false;
    }
    parameters.importOptions(*dictionary);
    return true;
}

} // namespace

bool writeOptions(const Parameters &parameters, const QString &path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return writeFailed(file.errorString());
    const QByteArray xml = PropertyList::write(parameters.exportOptions());
    if (file.write(xml) != xml.size())
        return writeFailed(file.errorString());
    if (!file.commit())
        return writeFailed(file.errorString());
    return true;
}

bool readOptions(Parameters &parameters, const QString &path)
{
    return importFile(parameters, path, QStringLiteral("Can't import options"));
}

bool defaultOptions(Parameters &parameters, const QString &path)
{
    return importFile(parameters, path, QStringLiteral("Can't import default options"));
}

QStringList earlierPreferencesFolders()
{
    QStringList folders;
    const QString system = qEnvironmentVariable("XDG_CONFIG_DIRS");
    for (const QString &folder : system.split(QLatin1Char(':'), Qt::SkipEmptyParts))
        folders.append(folder);
    if (folders.isEmpty())
        folders.append(QStringLiteral("/etc/xdg"));
    folders.append(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    return folders;
}

bool importEarlierPreferences(Parameters &parameters, const QStringList &folders)
{
    if (OptionStore::text(kEarlierPreferencesImportedKey))
        return false;
    for (const QString &folder : folders) {
        const QString path = QDir(folder).filePath(kEarlierPreferencesName);
        if (!QFileInfo::exists(path))
            continue;
        const std::optional<QVariantMap> dictionary = PropertyList::readDictionaryFile(path);
        if (!dictionary)
            return false;
        parameters.importOptions(*dictionary);
        OptionStore::setText(kEarlierPreferencesImportedKey, path);
        showMessage(QStringLiteral("Imported"),
                    QStringLiteral("The preferences of the earlier edition were imported."));
        return true;
    }
    return false;
}

} // namespace quorval::OptionsFile

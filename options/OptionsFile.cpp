#include "options/OptionsFile.h"

#include "options/Messages.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "options/PropertyList.h"
#include "options/SaveTarget.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>

namespace quorval::OptionsFile {

namespace {

const QString kErrorTitle = QStringLiteral("Error");
// Kept in the store beside the options, so the earlier preferences are imported only once.
const QString kEarlierPreferencesImportedKey = QStringLiteral("Earlier preferences imported");

bool writeFailed(const QString &reason)
{
    showMessage(kErrorTitle, QStringLiteral("Can't write options file: ") + reason);
    return false;
}

// The entries of dictionary, nested ones brought to the top, that name one of options.
QVariantMap entriesOf(const Parameters &parameters, const QVariantMap &dictionary,
                      const std::vector<const Parameter *> &options)
{
    QVariantMap kept;
    for (auto entry = dictionary.begin(); entry != dictionary.end(); ++entry) {
        if (entry.value().typeId() == QMetaType::QVariantMap)
            kept.insert(entriesOf(parameters, entry.value().toMap(), options));
        else if (std::find(options.begin(), options.end(), parameters.findForKey(entry.key())) !=
                 options.end())
            kept.insert(entry.key(), entry.value());
    }
    return kept;
}

// Imports the dictionary of the file at path, or of its entries that name one of only when
// given; shows failureText and the reason when it is missing or no dictionary, and the entries
// refused when there were some.
bool importFile(Parameters &parameters, const QString &path, const QString &failureText,
                const std::vector<const Parameter *> &only = {})
{
    QString why;
    std::optional<QVariantMap> dictionary = PropertyList::readDictionaryFile(path, &why);
    if (!dictionary) {
        showMessage(kErrorTitle, failureText + QStringLiteral(": ") + why);
        return false;
    }
    if (!only.empty())
        dictionary = entriesOf(parameters, *dictionary, only);
    const std::vector<Parameters::RefusedEntry> refused = parameters.importOptions(*dictionary);
    if (!refused.empty()) {
        QString text =
            QStringLiteral("Left as they were, from %1:").arg(quotedForMessage(path, 200));
        for (const Parameters::RefusedEntry &entry : refused)
            text += QLatin1Char('\n') + entry.text();
        showMessage(QStringLiteral("Options refused"), text);
    }
    return true;
}

} // namespace

bool writeOptions(const Parameters &parameters, const QString &path)
{
    const QByteArray xml = PropertyList::write(parameters.exportOptions());
    const SaveTarget target = saveTargetOf(QFile::encodeName(path).toStdString());
    if (target == SaveTarget::folder)
        return writeFailed(QStringLiteral("%1 is a folder").arg(quotedForMessage(path, 200)));
    if (target == SaveTarget::inPlace) {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size() || !file.flush())
            return writeFailed(file.errorString());
        return true;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return writeFailed(file.errorString());
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

QString companionPath(const QString &soundPath)
{
    // In the folder as given, so that a message names it as the user did.
    const QFileInfo sound(soundPath);
    return soundPath.chopped(sound.fileName().size()) + sound.completeBaseName() +
           QStringLiteral(".plist");
}

std::optional<QString> takeCompanionScale(Parameters &parameters, const QString &soundPath)
{
    const QString path = companionPath(soundPath);
    if (!QFileInfo::exists(path))
        return std::nullopt;
    const QString name = QFileInfo(path).fileName();
    if (!importFile(parameters, path,
                    QStringLiteral("Can't take the key from %1").arg(quotedForMessage(path, 200)),
                    {&parameters.key, &parameters.minor, &parameters.temperament,
                     &parameters.transposition, &parameters.aFrequency}))
        return std::nullopt;
    return QStringLiteral("Key %1 %2 from %3")
        .arg(parameters.key.value(),
             parameters.minor.value() ? QStringLiteral("minor") : QStringLiteral("major"), name);
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

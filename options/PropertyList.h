#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace quorval {

// XML property lists (version 1.0, with the standard DOCTYPE) as options files are made of.
namespace PropertyList {

// A property list whose root is a dictionary of strings, in key order. Readable by any plist
// reader.
QByteArray write(const QMap<QString, QString> &dictionary);

// The root dictionary of a property list. Values become QString (string), qint64 (integer),
// double (real), bool (true, false), QDateTime (date), QByteArray (data), QVariantList (array)
// and QVariantMap (dict). Comments, blanks and any line ends are taken as XML takes them.
// Nothing when the text is not a well-formed property list, its root is not a dictionary or it
// nests deeper than 100 levels; then why, when given, says what is wrong.
std::optional<QVariantMap> readDictionary(const QByteArray &xml, QString *why = nullptr);

// As readDictionary, from a file (a resource path such as ":/name" too); nothing when the file
// cannot be read ("no such file", "it is a folder", the system's reason).
std::optional<QVariantMap> readDictionaryFile(const QString &path, QString *why = nullptr);

} // namespace PropertyList

} // namespace quorval

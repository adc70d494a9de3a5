#include "options/PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QVariantList>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace quorval::PropertyList {

namespace {

const QString kDoctype = QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">");

// Each level of nesting takes a few frames of the stack: far deeper than any options file goes,
// and far short of what a hostile file would need to overflow it.
constexpr int kMaxDepth = 100;

// Why the last read failed, for the reader's caller.
struct Failure
{
    QString why;
};

std::optional<QVariant> readValue(QXmlStreamReader &reader, int depth, Failure &failure);

bool tooDeep(int depth, Failure &failure)
{
    if (depth <= kMaxDepth)
        return false;
    failure.why = QStringLiteral("nested deeper than %1 levels").arg(kMaxDepth);
    return true;
}

// Reads the entries of a dict element whose start the reader has just passed.
std::optional<QVariant> readDict(QXmlStreamReader &reader, int depth, Failure &failure)
{
    if (tooDeep(depth, failure))
        return std::nullopt;
    QVariantMap map;
    while (reader.readNextStartElement()) {
        if (reader.name() != QLatin1String("key")) {
            failure.why = QStringLiteral("a <dict> holds <%1> where a <key> belongs")
                              .arg(reader.name().toString());
            return std::nullopt;
        }
        const QString key = reader.readElementText();
        if (reader.hasError() || !reader.readNextStartElement()) {
            failure.why = QStringLiteral("the <key> %1 has no value").arg(key);
            return std::nullopt;
        }
        std::optional<QVariant> value = readValue(reader, depth, failure);
        if (!value)
            return std::nullopt;
        map.insert(key, *value);
    }
    if (reader.hasError())
        return std::nullopt;
    return QVariant(map);
}

std::optional<QVariant> readArray(QXmlStreamReader &reader, int depth, Failure &failure)
{
    if (tooDeep(depth, failure))
        return std::nullopt;
    QVariantList list;
    while (reader.readNextStartElement()) {
        std::optional<QVariant> value = readValue(reader, depth, failure);
        if (!value)
            return std::nullopt;
        list.append(*value);
    }
    if (reader.hasError())
        return std::nullopt;
    return QVariant(list);
}

// Reads the value element the reader stands on, up to and including its end.
std::optional<QVariant> readValue(QXmlStreamReader &reader, int depth, Failure &failure)
{
    const QStringView name = reader.name();
    if (name == QLatin1String("dict"))
        return readDict(reader, depth + 1, failure);
    if (name == QLatin1String("array"))
        return readArray(reader, depth + 1, failure);
    if (name == QLatin1String("true") || name == QLatin1String("false")) {
        const bool b = name == QLatin1String("true");
        reader.skipCurrentElement();
        return QVariant(b);
    }
    const bool isString = name == QLatin1String("string");
    const bool isInteger = name == QLatin1String("integer");
    const bool isReal = name == QLatin1String("real");
    const bool isDate = name == QLatin1String("date");
    const bool isData = name == QLatin1String("data");
    if (!isString && !isInteger && !isReal && !isDate && !isData) {
        failure.why = QStringLiteral("<%1> is no property list value").arg(name.toString());
        return std::nullopt;
    }
    const QString text = reader.readElementText();
    if (reader.hasError())
        return std::nullopt;
    if (isString)
        return QVariant(text);
    bool ok = false;
    std::optional<QVariant> value;
    if (isInteger) {
        const qint64 n = text.trimmed().toLongLong(&ok);
        value = ok ? std::optional<QVariant>(QVariant(n)) : std::nullopt;
    } else if (isReal) {
        const double x = text.trimmed().toDouble(&ok);
        value = ok ? std::optional<QVariant>(QVariant(x)) : std::nullopt;
    } else if (isDate) {
        const QDateTime date = QDateTime::fromString(text.trimmed(), Qt::ISODate);
        value = date.isValid() ? std::optional<QVariant>(QVariant(date)) : std::nullopt;
    } else {
        value = QVariant(QByteArray::fromBase64(text.toLatin1()));
    }
    if (!value)
        failure.why = QStringLiteral("<%1> holds %2").arg(name.toString(), text.left(40));
    return value;
}

} // namespace

QByteArray write(const QMap<QString, QString> &dictionary)
{
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(-1);
    writer.writeStartDocument();
    writer.writeDTD(kDoctype);
    writer.writeStartElement(QStringLiteral("plist"));
    writer.writeAttribute(QStringLiteral("version"), QStringLiteral("1.0"));
    writer.writeStartElement(QStringLiteral("dict"));
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        writer.writeTextElement(QStringLiteral("key"), it.key());
        writer.writeTextElement(QStringLiteral("string"), it.value());
    }
    writer.writeEndElement();
    writer.writeEndElement();
    writer.writeEndDocument();
    return xml;
}

std::optional<QVariantMap> readDictionary(const QByteArray &xml, QString *why)
{
    QXmlStreamReader reader(xml);
    Failure failure;
    std::optional<QVariant> root;
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("plist"))
        failure.why = QStringLiteral("no <plist> element");
    else if (!reader.readNextStartElement() || reader.name() != QLatin1String("dict"))
        failure.why = QStringLiteral("its root is not a <dict>");
    else
        root = readDict(reader, 1, failure);
    // Nothing but the end of plist may follow the root dictionary.
    if (root && reader.readNextStartElement()) {
        failure.why = QStringLiteral("more follows the root <dict>");
        root.reset();
    }
    while (root && !reader.atEnd())
        reader.readNext();
    // The XML's own error, with its line, says most about a broken file.
    if (reader.hasError())
        failure.why =
            QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(reader.errorString());
    if (!root || reader.hasError()) {
        if (why)
            *why = failure.why.isEmpty() ? QStringLiteral("not a property list") : failure.why;
        return std::nullopt;
    }
    return root->toMap();
}

std::optional<QVariantMap> readDictionaryFile(const QString &path, QString *why)
{
    QFile file(path);
    if (!QFileInfo(path).isDir() && file.open(QIODevice::ReadOnly))
        return readDictionary(file.readAll(), why);
    if (why) {
        if (!QFileInfo::exists(path))
            *why = QStringLiteral("no such file");
        else if (QFileInfo(path).isDir())
            *why = QStringLiteral("it is a folder");
        else
            *why = file.errorString();
    }
    return std::nullopt;
}

} // namespace quorval::PropertyList

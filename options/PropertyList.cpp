#include "options/PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QVariantList>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace quorval::PropertyList {

namespace {

const QString kDoctype = QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">");

std::optional<QVariant> readValue(QXmlStreamReader &reader);

// Reads the entries of a dict element whose start the reader has just passed.
std::optional<QVariant> readDict(QXmlStreamReader &reader)
{
    QVariantMap map;
    while (reader.readNextStartElement()) {
        if (reader.name() != QLatin1String("key"))
            return std::nullopt;
        const QString key = reader.readElementText();
        if (reader.hasError() || !reader.readNextStartElement())
            return std::nullopt;
        std::optional<QVariant> value = readValue(reader);
        if (!value)
            return std::nullopt;
        map.insert(key, *value);
    }
    if (reader.hasError())
        return std::nullopt;
    return QVariant(map);
}

std::optional<QVariant> readArray(QXmlStreamReader &reader)
{
    QVariantList list;
    while (reader.readNextStartElement()) {
        std::optional<QVariant> value = readValue(reader);
        if (!value)
            return std::nullopt;
        list.append(*value);
    }
    if (reader.hasError())
        return std::nullopt;
    return QVariant(list);
}

// Reads the value element the reader stands on, up to and including its end.
std::optional<QVariant> readValue(QXmlStreamReader &reader)
{
    const QStringView name = reader.name();
    if (name == QLatin1String("dict"))
        return readDict(reader);
    if (name == QLatin1String("array"))
        return readArray(reader);
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
    if (!isString && !isInteger && !isReal && !isDate && !isData)
        return std::nullopt;
    const QString text = reader.readElementText();
    if (reader.hasError())
        return std::nullopt;
    if (isString)
        return QVariant(text);
    bool ok = false;
    if (isInteger) {
        const qint64 n = text.trimmed().toLongLong(&ok);
        return ok ? std::optional<QVariant>(QVariant(n)) : std::nullopt;
    }
    if (isReal) {
        const double x = text.trimmed().toDouble(&ok);
        return ok ? std::optional<QVariant>(QVariant(x)) : std::nullopt;
    }
    if (isDate) {
        const QDateTime date = QDateTime::fromString(text.trimmed(), Qt::ISODate);
        return date.isValid() ? std::optional<QVariant>(QVariant(date)) : std::nullopt;
    }
    return QVariant(QByteArray::fromBase64(text.toLatin1()));
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

std::optional<QVariantMap> readDictionary(const QByteArray &xml)
{
    QXmlStreamReader reader(xml);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("plist"))
        return std::nullopt;
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("dict"))
        return std::nullopt;
    std::optional<QVariant> root = readDict(reader);
    // Nothing but the end of plist may follow the root dictionary.
    if (!root || reader.readNextStartElement())
        return std::nullopt;
    while (!reader.atEnd())
        reader.readNext();
    if (reader.error() != QXmlStreamReader::NoError)
        return std::nullopt;
    return root->toMap();
}

std::optional<QVariantMap> readDictionaryFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return readDictionary(file.readAll());
}

} // namespace quorval::PropertyList

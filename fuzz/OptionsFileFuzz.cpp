// Fuzz target: arbitrary bytes are read as an options file (an XML property list). Whatever is
// accepted must be a dictionary that reads the same when written back; crashes, sanitizer
// reports (stack overflow from deep nesting among them) and the checks below fail.

#include "options/PropertyList.h"

#include <QMap>
#include <QString>
#include <QVariantMap>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace {

// The string entries of dictionary and of the dictionaries within it, as an import sees them.
void collectStrings(const QVariantMap &dictionary, QMap<QString, QString> &strings, int depth)
{
    if (depth > 100)
        std::abort(); // the reader promises no deeper nesting
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        if (it.value().typeId() == QMetaType::QVariantMap)
            collectStrings(it.value().toMap(), strings, depth + 1);
        else if (it.value().typeId() == QMetaType::QString)
            strings.insert(it.key(), it.value().toString());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const std::optional<QVariantMap> dictionary = quorval::PropertyList::readDictionary(bytes);
    if (!dictionary)
        return 0;
    QMap<QString, QString> strings;
    collectStrings(*dictionary, strings, 1);
    // What is written reads back the same. XML cannot hold every character a string may
    // carry (controls; a carriage return comes back as a line feed), so only texts it holds
    // as they are compared.
    for (auto it = strings.cbegin(); it != strings.cend(); ++it) {
        for (const QString &text : {it.key(), it.value()}) {
            for (const QChar c : text) {
                if ((c.unicode() < 0x20 && c != u'\t' && c != u'\n') || c.isSurrogate() ||
                    c.unicode() >= 0xFFFE)
                    return 0;
            }
        }
    }
    const std::optional<QVariantMap> back =
        quorval::PropertyList::readDictionary(quorval::PropertyList::write(strings));
    if (!back || back->size() != strings.size())
        std::abort();
    for (auto it = strings.cbegin(); it != strings.cend(); ++it) {
        if (back->value(it.key()).toString() != it.value())
            std::abort();
    }
    return 0;
}

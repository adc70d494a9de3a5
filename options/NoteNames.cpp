#include "options/NoteNames.h"

namespace quorval {

QString withAccidentalSigns(const QString &name)
{
    QString spelled = name.trimmed();
    if (spelled.isEmpty())
        return name;
    const QChar letter = spelled.front().toUpper();
    if (letter < QLatin1Char('A') || letter > QLatin1Char('G'))
        return name;
    spelled.front() = letter;
    for (qsizetype i = 1; i < spelled.size(); ++i) {
        if (spelled[i] == QLatin1Char('#'))
            spelled[i] = QChar(0x266F);
        else if (spelled[i] == QLatin1Char('b'))
            spelled[i] = QChar(0x266D);
    }
    return spelled;
}

} // namespace quorval

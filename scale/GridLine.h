#pragma once

#include <QString>
#include <QtGlobal>

namespace quorval {

// One note line of the scale.
struct GridLine
{
    // Note number at which the line is drawn (69 = A at "A Frequency"; semitones).
    double pitch = 0.0;
    // Importance of the line: 0 for the tonic up to 5 for the least important.
    qint64 rank = 0;
    // The note's name, e.g. "F♯".
    QString name;
};

} // namespace quorval

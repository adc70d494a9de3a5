#pragma once

#include "scale/Scale.h"

#include <QString>

#include <cmath>

namespace quorval {

// A note's name followed by its octave, C4 = 60 and A4 = 69: "F♯4".
inline QString withOctave(const QString &name, qint64 n)
{
    return name +
           QString::number(static_cast<qint64>(std::floor(static_cast<double>(n) / 12.0)) - 1);
}

} // namespace quorval

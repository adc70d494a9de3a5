#pragma once

#include <QString>

namespace quorval {

// A note or key name typed with ASCII accidentals ("C#", "Bb", "f#") in the spelling of the key
// lists ("C♯", "B♭", "F♯"): the letter in capitals, '#' and 'b' after it as the signs. Text
// that does not start with a note letter comes back as it is. Any thread.
QString withAccidentalSigns(const QString &name);

} // namespace quorval

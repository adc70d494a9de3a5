#pragma once

#include <QChar>

#include <optional>

namespace quorval {

// What the trace area shows. The letters are the first letters of the "View type" choices.
enum class ViewType
{
    Composite,
    RMSAmplitude,
    Amplitude,
    Pitch,
    Quality,
    Spectrum,
};

// 'C', 'R', 'A', 'P', 'Q', 'S'.
constexpr char letterOf(ViewType type)
{
    switch (type) {
    case ViewType::Composite:
        return 'C';
    case ViewType::RMSAmplitude:
        return 'R';
    case ViewType::Amplitude:
        return 'A';
    case ViewType::Pitch:
        return 'P';
    case ViewType::Quality:
        return 'Q';
    case ViewType::Spectrum:
        return 'S';
    }
    return 'C';
}

// The view type of a letter; nothing for any other letter.
inline std::optional<ViewType> viewTypeOfLetter(QChar letter)
{
    for (ViewType type : {ViewType::Composite, ViewType::RMSAmplitude, ViewType::Amplitude,
                          ViewType::Pitch, ViewType::Quality, ViewType::Spectrum})
        if (letter == QLatin1Char(letterOf(type)))
            return type;
    return std::nullopt;
}

} // namespace quorval

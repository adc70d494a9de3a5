#pragma once

#include <QChar>
#include <QString>
#include <QStringList>

#include <array>
#include <optional>

namespace quorval {

// What the trace area shows.
enum class ViewType
{
    Composite,
    RMSAmplitude,
    Amplitude,
    Pitch,
    Quality,
    Spectrum,
};

// Every view type's names, in menu order: the letter (the first of its "View type" choice, and
// the key after the view prefix), the choice (also the View menu's text) and the command
// line's name.
struct ViewTypeNames
{
    ViewType type;
    char letter;
    const char16_t *choice;
    const char *commandLine;
};
inline constexpr std::array<ViewTypeNames, 6> kViewTypes = {{
    {ViewType::Composite, 'C', u"Composite", "composite"},
    {ViewType::RMSAmplitude, 'R', u"RMS Amplitude", "rms"},
    {ViewType::Amplitude, 'A', u"Amplitude", "amplitude"},
    {ViewType::Pitch, 'P', u"Pitch", "pitch"},
    {ViewType::Quality, 'Q', u"Quality", "quality"},
    {ViewType::Spectrum, 'S', u"Spectrum", "spectrum"},
}};

constexpr const ViewTypeNames &namesOf(ViewType type)
{
    for (const ViewTypeNames &names : kViewTypes)
        if (names.type == type)
            return names;
    return kViewTypes.front();
}

constexpr char letterOf(ViewType type)
{
    return namesOf(type).letter;
}

// The "View type" choice, as the View menu shows it too.
inline QString choiceOf(ViewType type)
{
    return QString::fromUtf16(namesOf(type).choice);
}

// Every choice, in menu order.
inline QStringList viewTypeChoices()
{
    QStringList choices;
    for (const ViewTypeNames &names : kViewTypes)
        choices.append(QString::fromUtf16(names.choice));
    return choices;
}

// The view type of a letter (either case); nothing for any other letter.
inline std::optional<ViewType> viewTypeOfLetter(QChar letter)
{
    for (const ViewTypeNames &names : kViewTypes)
        if (letter.toUpper() == QLatin1Char(names.letter))
            return names.type;
    return std::nullopt;
}

// The view type of a command-line name; nothing for any other.
inline std::optional<ViewType> viewTypeOfCommandLine(const QString &name)
{
    for (const ViewTypeNames &names : kViewTypes)
        if (name == QLatin1String(names.commandLine))
            return names.type;
    return std::nullopt;
}

} // namespace quorval

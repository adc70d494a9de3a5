#include "options/StringParameter.h"

#include <utility>

namespace quorval {

StringParameter::StringParameter(QString name, ParameterFlags flags, QString filter)
    : TextParameter(std::move(name), flags), fileFilter(std::move(filter))
{
}

QString StringParameter::value() const
{
    return storedText().value_or(QString());
}

bool StringParameter::setValue(const QString &text)
{
    // Unset reads as empty: storing the empty text is no change.
    if (text == value())
        return true;
    store(text);
    return true;
}

QString StringParameter::valueText() const
{
    return value();
}

bool StringParameter::setFromText(const QString &text)
{
    return setValue(text);
}

QString StringParameter::allowedValues() const
{
    return QStringLiteral("any text");
}

} // namespace quorval

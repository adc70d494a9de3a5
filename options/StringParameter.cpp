#include "options/StringParameter.h"

#include <utility>

namespace quorval {

StringParameter::StringParameter(QString name, std::optional<QString> legacyName)
    : TextParameter(std::move(name), ParameterFlags{}, std::move(legacyName))
{
}

QString StringParameter::value() const
{
    return storedText().value_or(QString());
}

bool StringParameter::setValue(const QString &text)
{
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

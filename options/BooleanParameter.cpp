#include "options/BooleanParameter.h"

#include <utility>

namespace quorval {

BooleanParameter::BooleanParameter(QString name, bool defaultValue, ParameterFlags flags)
    : Parameter(std::move(name), flags), defaultValue(defaultValue)
{
}

bool BooleanParameter::value() const
{
    const std::optional<QString> stored = storedText();
    if (!stored)
        return defaultValue;
    return *stored == text(true);
}

bool BooleanParameter::setValue(bool b)
{
    if (b == value())
        return true;
    store(text(b));
    return true;
}

QString BooleanParameter::valueText() const
{
    return text(value());
}

bool BooleanParameter::setFromText(const QString &text)
{
    if (text == BooleanParameter::text(true))
        return setValue(true);
    if (text == BooleanParameter::text(false))
        return setValue(false);
    return false;
}

QString BooleanParameter::allowedValues() const
{
    return QStringLiteral("true or false");
}

QString BooleanParameter::text(bool b)
{
    return b ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace quorval

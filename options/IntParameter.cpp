#include "options/IntParameter.h"

#include "options/FollowUps.h"

#include <utility>

namespace quorval {

IntParameter::IntParameter(QString name, qint64 defaultValue, qint64 minValue, qint64 maxValue,
                           bool useMinMax, bool recompute, bool debug)
    : TextParameter(std::move(name), debug), defaultValue(defaultValue), minValue(minValue),
      maxValue(maxValue), useMinMax(useMinMax), recompute(recompute)
{
}

qint64 IntParameter::value() const
{
    const std::optional<QString> text = storedText();
    if (!text)
        return defaultValue;
    return parse(*text).value_or(defaultValue);
}

bool IntParameter::setValue(qint64 x)
{
    if (useMinMax && (x < minValue || x > maxValue))
        return false;
    if (x == value())
        return true;
    store(QString::number(x));
    if (recompute)
        requestRecompute();
    return true;
}

QString IntParameter::valueText() const
{
    return QString::number(value());
}

bool IntParameter::setFromText(const QString &text)
{
    const std::optional<qint64> x = parse(text);
    return x && setValue(*x);
}

std::optional<qint64> IntParameter::parse(const QString &text)
{
    bool ok = false;
    const qint64 x = text.trimmed().toLongLong(&ok);
    if (!ok)
        return std::nullopt;
    return x;
}

} // namespace quorval

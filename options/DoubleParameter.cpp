#include "options/DoubleParameter.h"

#include "options/FollowUps.h"

#include <cmath>
#include <utility>

namespace quorval {

DoubleParameter::DoubleParameter(QString name, double defaultValue, double minValue,
                                 double maxValue, bool useMinMax, bool resegment, bool recompute,
                                 bool debug)
    : TextParameter(std::move(name), debug), defaultValue(defaultValue), minValue(minValue),
      maxValue(maxValue), useMinMax(useMinMax), resegment(resegment), recompute(recompute),
      format(QStringLiteral("%.4f"))
{
}

double DoubleParameter::value() const
{
    const std::optional<QString> text = storedText();
    if (!text)
        return defaultValue;
    return parse(*text).value_or(defaultValue);
}

bool DoubleParameter::setValue(double x)
{
    if (!std::isfinite(x) || !accepts(x))
        return false;
    // Compared as stored, so that reading back a written file is no change even where the
    // default has more digits than the format keeps.
    const QString text = formatted(x);
    if (text == formatted(value()))
        return true;
    store(text);
    if (resegment)
        requestResegment();
    if (recompute)
        requestRecompute();
    return true;
}

QString DoubleParameter::valueText() const
{
    return formatted(value());
}

bool DoubleParameter::setFromText(const QString &text)
{
    const std::optional<double> x = parse(text);
    return x && setValue(*x);
}

QString DoubleParameter::formatted(double x) const
{
    return QString::asprintf(format.toLatin1().constData(), x);
}

std::optional<double> DoubleParameter::parse(const QString &text)
{
    bool ok = false;
    const double x = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(x))
        return std::nullopt;
    return x;
}

bool DoubleParameter::accepts(double x) const
{
    return !useMinMax || (x >= minValue && x <= maxValue);
}

} // namespace quorval

#include "options/NumberParameter.h"

#include <cmath>
#include <type_traits>
#include <utility>

namespace quorval {

namespace {

template <class T> constexpr bool kIsDouble = std::is_floating_point_v<T>;

} // namespace

template <class T>
NumberParameter<T>::NumberParameter(QString name, T defaultValue, std::optional<Range> range,
                                    ParameterFlags flags)
    : TextParameter(std::move(name), flags), defaultValue(defaultValue),
      minValue(range ? range->min : T{}), maxValue(range ? range->max : T{}),
      useMinMax(range.has_value()),
      format(kIsDouble<T> ? QStringLiteral("%.4f") : QStringLiteral("%lld"))
{
}

template <class T> T NumberParameter<T>::value() const
{
    const std::optional<QString> text = storedText();
    if (!text)
        return defaultValue;
    return parse(*text).value_or(defaultValue);
}

template <class T> bool NumberParameter<T>::setValue(T x)
{
    if constexpr (kIsDouble<T>) {
        if (!std::isfinite(x))
            return false;
    }
    // Four decimals can turn a value that passes into one that does not (90.99999 stores as
    // 91.0000), so the stored form is what is checked. Compared as stored too, so that reading
    // back a written file is no change even where the default has more digits than it keeps.
    const QString text = formatted(x);
    const std::optional<T> stored = parse(text);
    if (!stored || !accepts(*stored))
        return false;
    if (text == formatted(value()))
        return true;
    store(text);
    return true;
}

template <class T> QString NumberParameter<T>::valueText() const
{
    return formatted(value());
}

template <class T> bool NumberParameter<T>::setFromText(const QString &text)
{
    const std::optional<T> x = parse(text);
    return x && setValue(*x);
}

template <class T> QString NumberParameter<T>::allowedValues() const
{
    const QString kind =
        kIsDouble<T> ? QStringLiteral("a number") : QStringLiteral("a whole number");
    if (!useMinMax)
        return kind;
    return QStringLiteral("%1 from %2 to %3")
        .arg(kind, QString::number(minValue), QString::number(maxValue));
}

template <class T> QString NumberParameter<T>::formatted(T x) const
{
    if constexpr (kIsDouble<T>)
        return QString::asprintf(format.toLatin1().constData(), x);
    else
        return QString::asprintf(format.toLatin1().constData(), static_cast<long long>(x));
}

template <class T> std::optional<T> NumberParameter<T>::parse(const QString &text)
{
    bool ok = false;
    if constexpr (kIsDouble<T>) {
        const double x = text.trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(x))
            return std::nullopt;
        return x;
    } else {
        const qint64 x = text.trimmed().toLongLong(&ok);
        if (!ok)
            return std::nullopt;
        return x;
    }
}

template <class T> bool NumberParameter<T>::accepts(T x) const
{
    return !useMinMax || (x >= minValue && x <= maxValue);
}

template class NumberParameter<double>;
template class NumberParameter<qint64>;

} // namespace quorval

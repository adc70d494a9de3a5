#pragma once

#include "options/Parameter.h"

#include <QtGlobal>

#include <optional>

namespace quorval {

// An option holding a number of type T (double or qint64), stored as the text `format` makes of
// it: "%.4f" for doubles (so 440 is "440.0000"), the decimal digits for whole numbers. The value
// is checked and compared as stored, so what is in force is exactly what passed the checks.
// Thread: as Parameter.
template <class T> class NumberParameter : public TextParameter
{
public:
    // The allowed closed range.
    struct Range
    {
        T min;
        T max;
    };

    // Without a range any number is taken.
    NumberParameter(QString name, T defaultValue, std::optional<Range> range,
                    ParameterFlags flags = {});

    const T defaultValue;
    // The allowed closed range, enforced only when useMinMax.
    const T minValue;
    const T maxValue;
    const bool useMinMax;
    // printf format for storing and showing the value.
    const QString format;

    // The stored value, or defaultValue when absent or not a number of this type.
    T value() const;
    // Refuses a value that is not finite or whose stored form accepts() turns down. A value whose
    // stored text equals the current one is accepted without storing or follow-up work.
    bool setValue(T x);

    QString valueText() const override;
    bool setFromText(const QString &text) override;
    QString allowedValues() const override;

    // x as stored: format applied to x.
    QString formatted(T x) const;
    // A finite number of this type read from text (surrounding blanks allowed), or nothing.
    static std::optional<T> parse(const QString &text);

protected:
    // Whether x may be stored; the range check when useMinMax.
    virtual bool accepts(T x) const;
};

extern template class NumberParameter<double>;
extern template class NumberParameter<qint64>;

} // namespace quorval

#pragma once

#include "options/Parameter.h"

#include <optional>

namespace quorval {

// An option holding a double, stored as text in `format` ("%.4f", so 440 is "440.0000").
// Thread: as Parameter.
class DoubleParameter : public TextParameter
{
public:
    DoubleParameter(QString name, double defaultValue, double minValue, double maxValue,
                    bool useMinMax, bool resegment, bool recompute, bool debug);

    const double defaultValue;
    // The allowed closed range, enforced only when useMinMax.
    const double minValue;
    const double maxValue;
    const bool useMinMax;
    // A change re-cuts the sound into segments (and so recomputes everything).
    const bool resegment;
    // A change recomputes the analysis results.
    const bool recompute;
    // printf format for storing and showing the value.
    const QString format;

    Kind kind() const override { return Kind::Double; }

    // The stored value, or defaultValue when absent or not a finite number.
    double value() const;
    // Refuses a value that is not finite or that accepts() turns down. A value whose stored
    // text equals the current one is accepted without storing or follow-up work.
    bool setValue(double x);

    QString valueText() const override;
    bool setFromText(const QString &text) override;

    // x as stored: format applied to x.
    QString formatted(double x) const;
    // A finite number read from text (surrounding blanks allowed), or nothing.
    static std::optional<double> parse(const QString &text);

protected:
    // Whether x may be stored; the range check when useMinMax.
    virtual bool accepts(double x) const;
};

} // namespace quorval

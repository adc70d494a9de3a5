#pragma once

#include "options/Parameter.h"

#include <QtGlobal>

#include <optional>

namespace quorval {

// An option holding a whole number, stored as its decimal text. Thread: as Parameter.
class IntParameter : public TextParameter
{
public:
    IntParameter(QString name, qint64 defaultValue, qint64 minValue, qint64 maxValue,
                 bool useMinMax, bool recompute, bool debug);

    const qint64 defaultValue;
    // The allowed closed range, enforced only when useMinMax.
    const qint64 minValue;
    const qint64 maxValue;
    const bool useMinMax;
    // A change recomputes the analysis results.
    const bool recompute;

    Kind kind() const override { return Kind::Int; }

    // The stored value, or defaultValue when absent or not a whole number.
    qint64 value() const;
    // Refuses a value outside the range (when useMinMax); an unchanged value is accepted
    // without storing or follow-up work.
    bool setValue(qint64 x);

    QString valueText() const override;
    bool setFromText(const QString &text) override;

    // A whole number read from text (surrounding blanks allowed), or nothing.
    static std::optional<qint64> parse(const QString &text);
};

} // namespace quorval

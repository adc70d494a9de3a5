#pragma once

#include "options/Parameter.h"

namespace quorval {

// An on/off option, stored as "true" or "false". Thread: as Parameter.
class BooleanParameter : public Parameter
{
public:
    BooleanParameter(QString name, bool defaultValue, ParameterFlags flags = {});

    const bool defaultValue;

    Kind kind() const override { return Kind::Boolean; }

    // defaultValue when absent; true only for the exact text "true".
    bool value() const;
    // An unchanged value is accepted without storing or follow-up work.
    virtual bool setValue(bool b);

    QString valueText() const override;
    // Takes "true" and "false"; refuses any other text.
    bool setFromText(const QString &text) override;
    QString allowedValues() const override;

    static QString text(bool b);
};

} // namespace quorval

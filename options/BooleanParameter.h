#pragma once

#include "options/Parameter.h"

namespace quorval {

// An on/off option, stored as "true" or "false". Thread: as Parameter.
class BooleanParameter : public Parameter
{
public:
    // Of the flags, recolor and debug apply.
    BooleanParameter(QString name, bool defaultValue, ParameterFlags flags = {});

    const bool defaultValue;
    // A change recolours the display.
    const bool recolor;

    Kind kind() const override { return Kind::Boolean; }

    // defaultValue when absent; true only for the exact text "true".
    bool value() const;
    // An unchanged value is accepted without storing or follow-up work.
    virtual bool setValue(bool b);

    QString valueText() const override;
    // Takes "true" and "false"; refuses any other text.
    bool setFromText(const QString &text) override;
    QString allowedValues() const override;

    // The temperament option that decides whether recolouring also refreshes the tuning
    // offset; set once by the option set. Not owned.
    void setTemperament(const ChoiceParameter *temperament) { temperament_ = temperament; }

    static QString text(bool b);

private:
    const ChoiceParameter *temperament_ = nullptr;
};

} // namespace quorval

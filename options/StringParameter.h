#pragma once

#include "options/Parameter.h"

namespace quorval {

// A free-text option; its default is the empty string. Thread: as Parameter.
class StringParameter : public TextParameter
{
public:
    // fileFilter: the value is a file's path, chosen in a file panel showing these files
    // ("Scala scale (*.scl)"); empty for free text.
    explicit StringParameter(QString name, ParameterFlags flags = {}, QString fileFilter = {});

    Kind kind() const override { return Kind::String; }

    // The stored text, or the empty string.
    QString value() const;
    // Stores the text as it is; always accepted.
    bool setValue(const QString &text);

    QString valueText() const override;
    bool setFromText(const QString &text) override;
    QString allowedValues() const override;

    const QString fileFilter;
};

} // namespace quorval

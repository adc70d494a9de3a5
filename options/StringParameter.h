#pragma once

#include "options/Parameter.h"

namespace quorval {

// A free-text option; its default is the empty string. Thread: as Parameter.
class StringParameter : public TextParameter
{
public:
    explicit StringParameter(QString name, std::optional<QString> legacyName = std::nullopt);

    Kind kind() const override { return Kind::String; }

    // The stored text, or the empty string.
    QString value() const;
    // Stores the text as it is; always accepted.
    bool setValue(const QString &text);

    QString valueText() const override;
    bool setFromText(const QString &text) override;
    QString allowedValues() const override;
};

} // namespace quorval

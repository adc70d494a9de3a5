#pragma once

#include "options/Parameter.h"

#include <QStringList>

#include <mutex>
#include <optional>

namespace quorval {

// An option chosen from a list of texts. A second list of the same length (altChoices) names
// the same entries in another spelling; a stored text from either list is found. The lists may
// be exchanged on the main thread while other threads read the value, so they sit behind a
// lock. Thread: as Parameter.
class ChoiceParameter : public Parameter
{
public:
    // defaultValue defaults to the first entry of choices.
    ChoiceParameter(QString name, QStringList choices, std::optional<QStringList> altChoices,
                    std::optional<QString> defaultValue, ParameterFlags flags = {});

    const QString defaultValue;

    Kind kind() const override { return Kind::Choice; }

    QStringList choices() const;
    std::optional<QStringList> altChoices() const;
    // Replaces both lists; an attached control keeps its selected index.
    void setChoices(QStringList list, std::optional<QStringList> altList);

    // Position of the stored text (or of defaultValue when absent) in choices, else in
    // altChoices, else -1.
    int index() const;
    // The entry at index() in the current spelling; empty when index() is -1.
    QString value() const;
    // Sets the entry named text in either list (stored in the current spelling). Refuses a text
    // in neither list. Choosing the entry already in force stores nothing and asks nothing.
    bool setValue(const QString &text);
    // Sets the entry at position i; refuses a position outside both lists.
    bool setIndex(int i);

    QString valueText() const override;
    bool setFromText(const QString &text) override;
    // The current list: "one of C, B, B♭".
    QString allowedValues() const override;

protected:
    // Position of text in choices, else in altChoices, else -1.
    int find(const QString &text) const;

private:
    // The entry at i in choices, else in altChoices; empty when in neither.
    QString entry(int i) const;

    mutable std::mutex listsMutex_;
    QStringList choices_;
    std::optional<QStringList> altChoices_;
};

} // namespace quorval

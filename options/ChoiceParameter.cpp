#include "options/ChoiceParameter.h"

#include <utility>

namespace quorval {

ChoiceParameter::ChoiceParameter(QString name, QStringList choices,
                                 std::optional<QStringList> altChoices,
                                 std::optional<QString> defaultValue, ParameterFlags flags)
    : Parameter(std::move(name), flags),
      defaultValue(defaultValue.value_or(choices.isEmpty() ? QString() : choices.first())),
      choices_(std::move(choices)), altChoices_(std::move(altChoices))
{
}

QStringList ChoiceParameter::choices() const
{
    std::lock_guard lock(listsMutex_);
    return choices_;
}

std::optional<QStringList> ChoiceParameter::altChoices() const
{
    std::lock_guard lock(listsMutex_);
    return altChoices_;
}

void ChoiceParameter::setChoices(QStringList list, std::optional<QStringList> altList)
{
    {
        std::lock_guard lock(listsMutex_);
        choices_ = std::move(list);
        altChoices_ = std::move(altList);
    }
    if (view())
        view()->choicesChanged();
}

int ChoiceParameter::find(const QString &text) const
{
    std::lock_guard lock(listsMutex_);
    const qsizetype i = choices_.indexOf(text);
    if (i >= 0)
        return int(i);
    if (altChoices_)
        return int(altChoices_->indexOf(text));
    return -1;
}

QString ChoiceParameter::entry(int i) const
{
    std::lock_guard lock(listsMutex_);
    if (i >= 0 && i < choices_.size())
        return choices_.at(i);
    if (altChoices_ && i >= 0 && i < altChoices_->size())
        return altChoices_->at(i);
    return QString();
}

int ChoiceParameter::index() const
{
    return find(storedText().value_or(defaultValue));
}

QString ChoiceParameter::value() const
{
    return entry(index());
}

bool ChoiceParameter::setValue(const QString &text)
{
    return setIndex(find(text));
}

bool ChoiceParameter::setIndex(int i)
{
    const QString text = entry(i);
    if (text.isEmpty())
        return false;
    if (i == index())
        return true;
    store(text);
    return true;
}

QString ChoiceParameter::valueText() const
{
    return value();
}

bool ChoiceParameter::setFromText(const QString &text)
{
    return setValue(text);
}

QString ChoiceParameter::allowedValues() const
{
    return QStringLiteral("one of ") + choices().join(QStringLiteral(", "));
}

} // namespace quorval

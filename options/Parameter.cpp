#include "options/Parameter.h"

#include "options/ChoiceParameter.h"
#include "options/FollowUps.h"
#include "options/OptionStore.h"

#include <utility>

namespace quorval {

Parameter::Parameter(QString name, bool debug, std::optional<QString> legacyName)
    : name(std::move(name)), legacyName(std::move(legacyName)), debug(debug)
{
}

Parameter::~Parameter() = default;

void Parameter::resetToDefault()
{
    OptionStore::remove(name);
}

void Parameter::setView(std::unique_ptr<ParameterView> view)
{
    view_ = std::move(view);
}

void Parameter::loadView()
{
    if (view_)
        view_->load();
}

bool Parameter::applyView()
{
    return view_ ? view_->apply() : true;
}

std::optional<QString> Parameter::storedText() const
{
    return OptionStore::text(name);
}

void Parameter::store(const QString &text) const
{
    OptionStore::setText(name, text);
}

void Parameter::recolorFollowUp(const ChoiceParameter *temperament)
{
    if (temperament && temperament->index() != 0)
        requestTuningOffsetRefresh();
    requestRecolor();
}

} // namespace quorval

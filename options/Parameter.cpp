#include "options/Parameter.h"

#include "options/FollowUps.h"
#include "options/OptionStore.h"

#include <utility>

namespace quorval {

Parameter::Parameter(QString name, ParameterFlags flags, std::optional<QString> legacyName)
    : name(std::move(name)), legacyName(std::move(legacyName)), debug(flags.debug),
      resegment(flags.resegment), recompute(flags.recompute), recolor(flags.recolor),
      redisplay(flags.redisplay)
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
    if (!OptionStore::setText(name, text))
        return;
    if (resegment)
        requestResegment();
    if (recompute)
        requestRecompute();
    if (recolor)
        requestRecolor();
    if (redisplay)
        requestRedisplay();
}

} // namespace quorval

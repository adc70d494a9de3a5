#include "options/DeveloperMode.h"

#include <atomic>

namespace quorval {

namespace {

std::atomic<bool> developerModeOn{false};

} // namespace

bool developerMode()
{
    return developerModeOn.load();
}

void setDeveloperMode(bool on)
{
    developerModeOn.store(on);
}

} // namespace quorval

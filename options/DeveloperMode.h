#pragma once

namespace quorval {

// The application-wide developer mode: shows the debug options, the Developer menu and extra
// report lines. Off at start. Any thread may read it; the menu command toggles it on the main
// thread. Kept here, below everything that reads it.
bool developerMode();
void setDeveloperMode(bool on);

} // namespace quorval

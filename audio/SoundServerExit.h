#pragma once

namespace quorval::SoundServerExit {

// Qt before 6.7.3 drops its sound-server connection at exit without holding the lock of the
// thread that serves it; now and then libpulse then aborts the process after everything else
// has finished (QTBUG-125213), and a finished run reports a crash. Once armed, a process that
// ends through exit() or a return from main finishes Quorval's own work (the queues, pending
// removals, buffered output, the leak check of a sanitized build) and ends with the status it
// was given, without Qt's audio teardown. Brings up Qt's audio if it is not yet; any thread.
void arm();

} // namespace quorval::SoundServerExit

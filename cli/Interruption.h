#pragma once

namespace quorval {

// The one way quorval-cli's ending signals (SIGINT, SIGTERM, SIGHUP, SIGQUIT) are taken. They
// are blocked in every thread and waited for by a thread of their own. While a command listens
// (a recording, a playback, a tone), SIGINT, SIGTERM and SIGHUP ask it to stop, and it ends as
// it would by itself, with its summary and status. Otherwise, and for a second signal or
// SIGQUIT, the run's working files are removed and the run ends by that signal.
class Interruption
{
public:
    // Blocks the signals and starts the waiting thread. Main thread, before any other thread.
    static void takeSignals();

    // Signals ask the command to stop for as long as this lives. The command's thread.
    class Listening
    {
    public:
        Listening();
        ~Listening();
        Listening(const Listening &) = delete;
        Listening &operator=(const Listening &) = delete;
    };

    // True once a signal asked the listening command to stop. Any thread.
    [[nodiscard]] static bool requested();
};

} // namespace quorval

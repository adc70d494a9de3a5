#include "cli/Interruption.h"

#include "streams/WorkingFiles.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <thread>

namespace quorval {

namespace {

std::atomic<bool> listening{false};
std::atomic<bool> stopAsked{false};

// Removes the working files in ordinary code, then ends the process by signal.
[[noreturn]] void endBy(int signal)
{
    WorkingFiles::removeTracked();
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    std::raise(signal);
    std::_Exit(128 + signal);
}

} // namespace

void Interruption::takeSignals()
{
    sigset_t fatal;
    sigemptyset(&fatal);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&fatal, signal);
    pthread_sigmask(SIG_BLOCK, &fatal, nullptr);
    // A broken pipe becomes a write error, and the run ends as after any other.
    std::signal(SIGPIPE, SIG_IGN);
    // An abort unlinks the working copies from its handler; the rest is left to removeStale().
    struct sigaction onAbort
    {
    };
    onAbort.sa_handler = [](int) { WorkingFiles::removeTrackedNow(); };
    onAbort.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGABRT, &onAbort, nullptr);
    std::thread([fatal] {
        for (;;) {
            int signal = 0;
            if (sigwait(&fatal, &signal) != 0)
                return;
            // A command that does not stop when asked is ended by the next signal.
            if (signal != SIGQUIT && listening.load() && !stopAsked.exchange(true))
                continue;
            endBy(signal);
        }
    }).detach();
}

Interruption::Listening::Listening()
{
    stopAsked = false;
    listening = true;
}

Interruption::Listening::~Listening()
{
    listening = false;
}

bool Interruption::requested()
{
    return stopAsked.load();
}

} // namespace quorval

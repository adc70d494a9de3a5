#include "audio/SoundServerExit.h"

#include "streams/Quorval.h"

#include <QAudioDevice>
#include <QMediaDevices>
#include <QtGlobal>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace quorval::SoundServerExit {

#if QT_VERSION < QT_VERSION_CHECK(6, 7, 3)
namespace {

void endBeforeQtsAudioTeardown(int status, void *)
{
    // The queues stop and background removals finish, unless queues made after arming have
    // done so already, on their way out.
    if (!Quorval::isShuttingDown())
        Quorval::shutdown();
    (void)std::fflush(nullptr);
#if defined(__SANITIZE_ADDRESS__)
    // Skipped with the rest of the exit handlers otherwise.
    __lsan_do_leak_check();
#endif
    ::_exit(status);
}

} // namespace
#endif

void arm()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 7, 3)
    static std::once_flag armed;
    std::call_once(armed, [] {
        // Qt's audio first: exit handlers run last registered first, so ours then comes
        // before the teardown it replaces.
        (void)QMediaDevices::audioOutputs();
        (void)::on_exit(endBeforeQtsAudioTeardown, nullptr);
    });
#endif
}

} // namespace quorval::SoundServerExit

#include "audio/PulseServer.h"

#include <chrono>
#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>

namespace quorval::PulseServer {

namespace {

constexpr auto kPatience = std::chrono::seconds(1);

// Runs loop until done() holds, the context fails, or the patience runs out.
template <class Done> bool runUntil(pa_mainloop *loop, pa_context *context, Done done)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done()) {
        const pa_context_state_t state = pa_context_get_state(context);
        if (!PA_CONTEXT_IS_GOOD(state) || std::chrono::steady_clock::now() > deadline)
            return false;
        // Waits at most 50 ms for the server, so that the deadline is looked at.
        if (pa_mainloop_prepare(loop, 50 * 1000) < 0 || pa_mainloop_poll(loop) < 0 ||
            pa_mainloop_dispatch(loop) < 0)
            return false;
    }
    return true;
}

} // namespace

QByteArray defaultSourceName()
{
    pa_mainloop *loop = pa_mainloop_new();
    if (!loop)
        return {};
    QByteArray name;
    pa_context *context = pa_context_new(pa_mainloop_get_api(loop), "Quorval");
    // Never starts a server of its own: the one the audio library uses, or none.
    if (context && pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0 &&
        runUntil(loop, context,
                 [context] { return pa_context_get_state(context) == PA_CONTEXT_READY; })) {
        bool answered = false;
        struct Answer
        {
            QByteArray *name;
            bool *answered;
        } answer{&name, &answered};
        pa_operation *operation = pa_context_get_server_info(
            context,
            [](pa_context *, const pa_server_info *info, void *userdata) {
                auto *into = static_cast<Answer *>(userdata);
                if (info && info->default_source_name)
                    *into->name = QByteArray(info->default_source_name);
                *into->answered = true;
            },
            &answer);
        if (operation) {
            (void)runUntil(loop, context, [&answered] { return answered; });
            pa_operation_unref(operation);
        }
    }
    if (context) {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
    pa_mainloop_free(loop);
    return name;
}

} // namespace quorval::PulseServer

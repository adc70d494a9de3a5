// Built into every program of a ThreadSanitizer build (-DQUORVAL_SANITIZE=thread), tests and
// build-time tools alike: the sanitizer's defaults, to which TSAN_OPTIONS adds.
//
// The system's Qt, GLib and sound-server client are not instrumented, so the sanitizer cannot see
// their own locks and wake-ups: what it reports from inside them (Qt's threaded painting, GLib's
// event fds, the client's shared ring) are not races of ours. The tests start programs that fork
// and exec at once, which the sanitizer would otherwise refuse once threads exist.
extern "C" const char *__tsan_default_options()
{
    return "ignore_noninstrumented_modules=1 die_after_fork=0";
}

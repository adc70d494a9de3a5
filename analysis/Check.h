#pragma once

// The always-on check for broken invariants: a failed check prints the condition, file and line
// to stderr and aborts, in every build type. It never reports user errors; those are returned.

namespace quorval {

[[noreturn]] void checkFailed(const char *condition, const char *file, int line);

} // namespace quorval

#define QUORVAL_CHECK(condition)                                                                   \
    do {                                                                                           \
        if (!(condition)) [[unlikely]]                                                             \
            ::quorval::checkFailed(#condition, __FILE__, __LINE__);                                \
    } while (false)

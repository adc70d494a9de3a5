#include "analysis/Check.h"

#include <cstdio>
#include <cstdlib>

namespace quorval {

void checkFailed(const char *condition, const char *file, int line)
{
    std::fprintf(stderr, "Quorval: check failed: %s at %s:%d\n", condition, file, line);
    std::fflush(stderr);
    std::abort();
}

} // namespace quorval

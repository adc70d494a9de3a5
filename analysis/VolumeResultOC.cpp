#include "analysis/VolumeResultOC.h"

#include <limits>

namespace quorval {

void VolumeResultOC::clear()
{
    min = std::numeric_limits<double>::max();
    max = -std::numeric_limits<double>::max();
    rms = 0.0;
}

} // namespace quorval

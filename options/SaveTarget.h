#pragma once

#include <string>

namespace quorval {

// How a file about to be written should be written, judged from what is at its path now.
enum class SaveTarget
{
    // Missing, or a regular file (through any links): write a new file beside it and rename it
    // over the old one once complete, so a failure leaves the old file whole.
    replace,
    // A FIFO, a device, a socket: written through as it is, since a rename would put a regular
    // file in its place (writing to /dev/null must leave /dev/null).
    inPlace,
    // A folder: never written.
    folder,
};

// Any thread.
SaveTarget saveTargetOf(const std::string &path);

} // namespace quorval

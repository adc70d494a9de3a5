#pragma once

#include <string>

namespace quorval {

// Opens path only when it is a regular file, and never blocks doing so: a FIFO, a device, a
// socket or a folder is refused after a stat, before anything could wait on it, and the open
// itself does not wait (a FIFO swapped in meanwhile is caught by the check of what was opened).
// flags: O_RDONLY or O_RDWR, optionally with O_NOFOLLOW (then a link is refused as well).
// Answers the descriptor (close-on-exec, in blocking mode), or -1 with a short lower-case reason
// for the user in why ("no such file", "not a regular file (a FIFO)", "permission denied").
// Any thread.
[[nodiscard]] int openRegularFile(const std::string &path, int flags, std::string &why);

// A short lower-case reason for the user for an errno value ("no such file",
// "permission denied", "no space left on the disk").
[[nodiscard]] std::string reasonOf(int error);

} // namespace quorval

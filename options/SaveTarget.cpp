#include "options/SaveTarget.h"

#include <filesystem>

namespace quorval {

SaveTarget saveTargetOf(const std::string &path)
{
    std::error_code error;
    // status() follows links: a link to a regular file is replaced through the link's target.
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    switch (status.type()) {
    case std::filesystem::file_type::not_found:
    case std::filesystem::file_type::regular:
        return SaveTarget::replace;
    case std::filesystem::file_type::directory:
        return SaveTarget::folder;
    default:
        // A path that cannot be examined (a part of it is a file, no permission) is left to the
        // write itself, which fails with the system's reason.
        return error ? SaveTarget::replace : SaveTarget::inPlace;
    }
}

} // namespace quorval

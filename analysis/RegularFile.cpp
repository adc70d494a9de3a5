#include "analysis/RegularFile.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorval {

namespace {

std::string notRegular(mode_t mode)
{
    const char *kind = S_ISDIR(mode)    ? "a folder"
                       : S_ISFIFO(mode) ? "a FIFO"
                       : S_ISSOCK(mode) ? "a socket"
                       : S_ISLNK(mode)  ? "a link"
                                        : "a device";
    return std::string("not a regular file (") + kind + ")";
}

} // namespace

std::string reasonOf(int error)
{
    switch (error) {
    case ENOENT:
        return "no such file";
    case EACCES:
    case EPERM:
        return "permission denied";
    case ENOSPC:
        return "the disk is full";
    case EDQUOT:
        return "the disk quota is used up";
    case EISDIR:
        return notRegular(S_IFDIR);
    case ELOOP:
        return "a link, which is not followed";
    default:
        break;
    }
    std::string text = std::strerror(error);
    if (!text.empty())
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

int openRegularFile(const std::string &path, int flags, std::string &why)
{
    const bool follow = (flags & O_NOFOLLOW) == 0;
    struct stat before
    {
    };
    if ((follow ? ::stat(path.c_str(), &before) : ::lstat(path.c_str(), &before)) != 0) {
        why = reasonOf(errno);
        return -1;
    }
    if (!S_ISREG(before.st_mode)) {
        why = notRegular(before.st_mode);
        return -1;
    }
    const int fd = ::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        why = reasonOf(errno);
        return -1;
    }
    struct stat opened
    {
    };
    if (::fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode)) {
        why = notRegular(opened.st_mode);
        ::close(fd);
        return -1;
    }
    const int status = ::fcntl(fd, F_GETFL);
    if (status != -1)
        (void)::fcntl(fd, F_SETFL, status & ~O_NONBLOCK);
    return fd;
}

} // namespace quorval

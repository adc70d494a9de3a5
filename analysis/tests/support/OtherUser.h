#pragma once

#include <optional>
#include <pwd.h>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quorval::testsignals {

// The uid of a second local user for tests of what one user may do to another's files, made
// with useradd on first use; nothing when not run as root (why then says so) or when it cannot
// be made.
inline std::optional<uid_t> otherUser(std::string &why)
{
    constexpr const char *kName = "quorval-other";
    if (::geteuid() != 0) {
        why = "another user's files can only be planted when run as root";
        return std::nullopt;
    }
    if (const passwd *found = ::getpwnam(kName))
        return found->pw_uid;
    const pid_t child = ::fork();
    if (child == 0) {
        ::execlp("useradd", "useradd", "--system", "--no-create-home", "--shell",
                 "/usr/sbin/nologin", kName, static_cast<char *>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0) {
        why = "useradd could not make a second user";
        return std::nullopt;
    }
    if (const passwd *made = ::getpwnam(kName))
        return made->pw_uid;
    why = "the user made by useradd is not found";
    return std::nullopt;
}

} // namespace quorval::testsignals

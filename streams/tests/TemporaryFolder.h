#pragma once

#include <QTemporaryDir>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace quorval::test {

// Points the temporary folder (TMPDIR) at a folder of the test's own while it lives.
class OwnTemporaryFolder
{
public:
    OwnTemporaryFolder()
    {
        const char *old = std::getenv("TMPDIR");
        if (old)
            previous = old;
        ::setenv("TMPDIR", dir.path().toLocal8Bit().constData(), 1);
    }
    ~OwnTemporaryFolder()
    {
        if (previous.empty())
            ::unsetenv("TMPDIR");
        else
            ::setenv("TMPDIR", previous.c_str(), 1);
    }
    OwnTemporaryFolder(const OwnTemporaryFolder &) = delete;
    OwnTemporaryFolder &operator=(const OwnTemporaryFolder &) = delete;

    // The folder itself, or name in it.
    std::filesystem::path path(const std::string &name = {}) const
    {
        const std::filesystem::path folder(dir.path().toStdString());
        return name.empty() ? folder : folder / name;
    }

private:
    QTemporaryDir dir;
    std::string previous;
};

} // namespace quorval::test

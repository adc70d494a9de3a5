#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace quorval::test {

// A program the tests start, made by a real fork. QProcess starts its children with a clone that
// shares the parent's memory until exec: under ThreadSanitizer the child's intercepted calls
// (close, dup) then rewrite the parent's own records, and every later hand-over between the
// parent's threads is reported as a race. A fork leaves the parent's records alone.
class ChildProcess
{
public:
    // Starts program (looked up in PATH) with arguments, its environment changed by set
    // ("NAME=value" each); its output is kept for finish().
    ChildProcess(const QString &program, const QStringList &arguments, const QStringList &set = {})
    {
        // Everything the child needs is made here: between fork and exec only plain system
        // calls are safe in a process with threads.
        std::vector<QByteArray> words{QFile::encodeName(program)};
        for (const QString &argument : arguments)
            words.push_back(argument.toLocal8Bit());
        std::vector<QByteArray> variables;
        for (char **entry = environ; *entry; ++entry) {
            const QByteArray pair(*entry);
            const QByteArray name = pair.left(pair.indexOf('=') + 1);
            const bool replaced = std::any_of(set.begin(), set.end(), [&](const QString &s) {
                return s.toLocal8Bit().startsWith(name);
            });
            if (!replaced)
                variables.push_back(pair);
        }
        for (const QString &pair : set)
            variables.push_back(pair.toLocal8Bit());
        std::vector<char *> argv;
        for (QByteArray &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        std::vector<char *> envp;
        for (QByteArray &variable : variables)
            envp.push_back(variable.data());
        envp.push_back(nullptr);

        int out[2];
        int err[2];
        if (::pipe2(out, O_CLOEXEC) != 0)
            return;
        if (::pipe2(err, O_CLOEXEC) != 0) {
            ::close(out[0]);
            ::close(out[1]);
            return;
        }
        childId = ::fork();
        if (childId == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(err[1], STDERR_FILENO);
            ::execvpe(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        ::close(out[1]);
        ::close(err[1]);
        outFd = out[0];
        errFd = err[0];
        if (childId < 0) {
            closeReaders();
            childId = -1;
        }
    }

    ~ChildProcess()
    {
        if (childId > 0) {
            ::kill(childId, SIGKILL);
            (void)finish(10000);
        }
        closeReaders();
    }
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    [[nodiscard]] bool started() const { return childId > 0; }
    [[nodiscard]] pid_t id() const { return childId; }

    // Reads the child's output until it ends, for at most timeoutMs; then kills it. False when
    // it had to be killed (or never started).
    bool finish(int timeoutMs)
    {
        if (childId <= 0)
            return false;
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        bool inTime = true;
        while (outFd >= 0 || errFd >= 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                inTime = false;
                ::kill(childId, SIGKILL);
                break;
            }
            pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
            if (::poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR)
                break;
            drain(fds[0], outFd, output);
            drain(fds[1], errFd, error);
        }
        int status = 0;
        while (::waitpid(childId, &status, 0) < 0 && errno == EINTR) {
        }
        childId = -1;
        closeReaders();
        exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        crashed = !inTime || !WIFEXITED(status);
        return inTime;
    }

    int exitCode = -1;
    bool crashed = false;
    QByteArray output;
    QByteArray error;

private:
    static void drain(const pollfd &ready, int &fd, QByteArray &into)
    {
        if (fd < 0 || ready.revents == 0)
            return;
        char buffer[4096];
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got > 0) {
            into.append(buffer, static_cast<qsizetype>(got));
        } else if (got == 0 || errno != EINTR) {
            ::close(fd);
            fd = -1;
        }
    }
    void closeReaders()
    {
        for (int *fd : {&outFd, &errFd}) {
            if (*fd >= 0)
                ::close(*fd);
            *fd = -1;
        }
    }

    pid_t childId = -1;
    int outFd = -1;
    int errFd = -1;
};

} // namespace quorval::test

#pragma once

#include "audio/SoundDevices.h"
#include "audio/tests/ChildProcess.h"

#include <QAudioDevice>
#include <QByteArray>
#include <QMediaDevices>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace quorval::test {

// Whether the sound server the test script starts is there: it lists an input and an output.
inline bool soundServerPresent()
{
    return !SoundDevices::inputNames().isEmpty() && !SoundDevices::outputNames().isEmpty();
}

// CI sets QUORVAL_REQUIRE_AUDIO=1: there a missing server fails instead of skipping.
inline bool soundServerRequired()
{
    const char *required = std::getenv("QUORVAL_REQUIRE_AUDIO");
    return required && std::string(required) == "1";
}

// What a child process left behind.
struct ChildResult
{
    int exitCode = -1;
    bool crashed = false;
    QString errorText;
    QString outputText;
};

// Runs program with arguments and the environment changed by `set` ("NAME=value"), waiting up
// to timeoutMs.
inline ChildResult runChild(const QString &program, const QStringList &arguments,
                            const QStringList &set = {}, int timeoutMs = 30000)
{
    ChildProcess child(program, arguments, set);
    ChildResult result;
    result.crashed = !child.finish(timeoutMs) || child.crashed;
    result.exitCode = child.exitCode;
    result.errorText = QString::fromLocal8Bit(child.error);
    result.outputText = QString::fromLocal8Bit(child.output);
    return result;
}

} // namespace quorval::test

// Skips a test that needs the sound server when there is none, unless one is required.
#define QUORVAL_NEED_SOUND_SERVER()                                                                \
    do {                                                                                           \
        if (!quorval::test::soundServerPresent()) {                                                \
            if (quorval::test::soundServerRequired())                                              \
                FAIL() << "QUORVAL_REQUIRE_AUDIO=1 but no sound server answers";                   \
            GTEST_SKIP() << "no sound server (run the tests through scripts/sound-server.sh)";     \
        }                                                                                          \
    } while (false)

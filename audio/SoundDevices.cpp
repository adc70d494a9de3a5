#include "audio/SoundDevices.h"

#include <QMediaDevices>
#include <QString>

#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace quorval::SoundDevices {

namespace {

// Where a client would connect: PULSE_SERVER's unix socket, else the per-user one.
QString serverSocketPath()
{
    const QString server = qEnvironmentVariable("PULSE_SERVER");
    if (server.startsWith(QLatin1String("unix:")))
        return server.mid(5);
    if (!server.isEmpty())
        return {};
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return runtime.isEmpty() ? QString() : runtime + QLatin1String("/pulse/native");
}

} // namespace

std::optional<QAudioDevice> defaultInput()
{
    const QList<QAudioDevice> inputs = QMediaDevices::audioInputs();
    if (inputs.isEmpty())
        return std::nullopt;
    const QByteArray named = qgetenv("PULSE_SOURCE");
    for (const QAudioDevice &device : inputs) {
        if (device.isDefault())
            return device;
    }
    for (const QAudioDevice &device : inputs) {
        if (!named.isEmpty() && device.id() == named)
            return device;
    }
    // Qt's own default ignores the server's choice; its list starts with the server's order.
    const QAudioDevice fallback = QMediaDevices::defaultAudioInput();
    return fallback.isNull() ? inputs.front() : fallback;
}

std::optional<QAudioDevice> defaultOutput()
{
    const QList<QAudioDevice> outputs = QMediaDevices::audioOutputs();
    if (outputs.isEmpty())
        return std::nullopt;
    for (const QAudioDevice &device : outputs) {
        if (device.isDefault())
            return device;
    }
    return outputs.front();
}

bool serverRefusesAccess()
{
    const QString path = serverSocketPath();
    if (path.isEmpty())
        return false;
    const QByteArray local = path.toLocal8Bit();
    if (::access(local.constData(), F_OK) != 0)
        return false;
    return ::access(local.constData(), R_OK | W_OK) != 0 && errno == EACCES;
}

QString inputProblem()
{
    if (defaultInput())
        return {};
    if (serverRefusesAccess())
        return QStringLiteral("Recording permission has been denied.  You can change this in the "
                              "Settings app under Privacy -> Microphone.");
    return QStringLiteral("There is no microphone on this device.");
}

} // namespace quorval::SoundDevices

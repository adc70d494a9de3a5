#include "audio/SoundDevices.h"

#include "audio/PulseServer.h"
#include "audio/SoundServerExit.h"

#include <QCoreApplication>
#include <QMediaDevices>
#include <QString>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>
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

// Every use of Qt's audio starts here: the process's end is made safe first.
QList<QAudioDevice> audioInputs()
{
    SoundServerExit::arm();
    return QMediaDevices::audioInputs();
}

QList<QAudioDevice> audioOutputs()
{
    SoundServerExit::arm();
    return QMediaDevices::audioOutputs();
}

} // namespace

std::optional<QAudioDevice> defaultInput()
{
    const QList<QAudioDevice> inputs = audioInputs();
    if (inputs.isEmpty())
        return std::nullopt;
    // Qt 6.4 marks no input as the default: the server is asked which one it is.
    const QByteArray serverDefault = PulseServer::defaultSourceName();
    for (const QAudioDevice &device : inputs) {
        if (!serverDefault.isEmpty() && device.id() == serverDefault)
            return device;
    }
    for (const QAudioDevice &device : inputs) {
        if (device.isDefault())
            return device;
    }
    const QByteArray named = qgetenv("PULSE_SOURCE");
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
    const QList<QAudioDevice> outputs = audioOutputs();
    if (outputs.isEmpty())
        return std::nullopt;
    for (const QAudioDevice &device : outputs) {
        if (device.isDefault())
            return device;
    }
    return outputs.front();
}

namespace {

QStringList namesOf(const QList<QAudioDevice> &devices)
{
    QStringList names;
    for (const QAudioDevice &device : devices)
        names.append(device.description());
    return names;
}

} // namespace

void waitForDeviceLists()
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(1);
    QStringList seen = inputNames() + outputNames();
    auto stableSince = Clock::now();
    while (Clock::now() < deadline && Clock::now() - stableSince < std::chrono::milliseconds(150)) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const QStringList now = inputNames() + outputNames();
        if (now != seen) {
            seen = now;
            stableSince = Clock::now();
        }
    }
}

QStringList inputNames()
{
    return namesOf(audioInputs());
}

QStringList outputNames()
{
    return namesOf(audioOutputs());
}

std::optional<QAudioDevice> chosenInput(const QString &wanted, QString *fallback)
{
    if (fallback)
        fallback->clear();
    if (wanted.isEmpty() || wanted == QLatin1String("Default"))
        return defaultInput();
    const QList<QAudioDevice> inputs = audioInputs();
    for (const QAudioDevice &device : inputs)
        if (device.description() == wanted)
            return device;
    for (const QAudioDevice &device : inputs)
        if (QString::fromUtf8(device.id()) == wanted)
            return device;
    std::optional<QAudioDevice> instead = defaultInput();
    if (fallback && instead)
        *fallback = QStringLiteral("The input \"%1\" is not connected; recording from \"%2\".")
                        .arg(wanted, instead->description());
    return instead;
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

#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class QWidget;

namespace quorval {

class WavStream;

// Recordings a crash kept from being saved: offered at start-up (recover, discard for good, or
// later), and the crash copy of the one recovered removed once it is saved or let go.
// Main thread only.
class CrashRecovery : public QObject
{
    Q_OBJECT

public:
    // Recoveries offered at one start at most; the rest wait for a later start.
    static constexpr int kRecoveryOffers = 3;

    explicit CrashRecovery(QObject *parent = nullptr) : QObject(parent) {}

    // Offers each recording left unsaved (kRecoveryOffers at most), asking through dialogs
    // parented to window. Answers the one recovered, as an unsaved sound with no place to save
    // to, or null.
    [[nodiscard]] std::shared_ptr<WavStream> offer(QWidget *window);

    // The recovered sound is safe (saved) or was let go: its crash copy goes.
    void settled(const std::shared_ptr<WavStream> &wav);

private:
    std::optional<QString> recoveredFrom;
    std::weak_ptr<WavStream> recoveredStream;
};

} // namespace quorval

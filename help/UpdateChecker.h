#pragma once

#include "help/UpdateHost.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

namespace quorval {

// Asks the update service for the newest published version, a small JSON document
// {"version": "1.2.0", "download": "https://..."}, without holding up the window: the request
// runs on the event loop and the answer is handled when it comes, or given up after the
// timeout (5 s).
//
// At start-up ("Check for Updates on Startup": "Always" each time, "Once" until one check has
// succeeded, "Never" not at all) only a newer version speaks up, and a version the user has
// once declined at start-up ("Ignore update version") is not offered again there. On request
// (the File menu) every outcome is told: a newer version, "this is the newest version", or why
// the check could not be made. A newer version offers to open its download page; yes opens it
// in the browser and quits so that the user can install it.
//
// Each successful check stores the service's version in "lastversion" and the time (seconds
// since 1970) in "Last Update Check". Main thread only.
class UpdateChecker : public QObject
{
    Q_OBJECT
public:
    enum class Outcome
    {
        Newer,  // the service has a later version than this one
        Newest, // the same or an earlier version (a development build)
        Failed  // no usable answer; reason says why
    };
    struct Result
    {
        Outcome outcome = Outcome::Failed;
        QString version;
        QUrl download;
        QString reason;
    };

    static constexpr std::chrono::milliseconds kTimeout{5000};
    // A version document is a few hundred bytes: an answer (unpacked) longer than this is
    // refused as soon as it passes it, however it is sent.
    static constexpr qint64 kMaxAnswerBytes = 1024 * 1024;
    static const QString kTitle;

    explicit UpdateChecker(UpdateHost host, QObject *parent = nullptr);
    ~UpdateChecker() override;

    // The service's address: QUORVAL_UPDATE_URL from the environment when set, else the one
    // built in.
    static QUrl serviceUrl();
    // This program's version ("0.1.0").
    static QString currentVersion();

    // -1, 0 or 1 as a is earlier, the same as or later than b; nothing when either is not a
    // dotted version of one to four numbers ("1", "1.2", "1.2.0"). Missing parts count as 0.
    static std::optional<int> compareVersions(const QString &a, const QString &b);
    // Reads the service's document against the version of this program.
    static Result readAnswer(const QByteArray &json, const QString &current);

    // Checks as "Check for Updates on Startup" says; true when a check was started.
    bool checkAtStartup();
    // Checks and tells the outcome, whatever it is. A check already running is reported in
    // full instead of starting a second one.
    void checkOnRequest();
    bool isChecking() const { return reply_ != nullptr; }

    // For tests and builds: the address, the time limit and this program's version.
    void setUrl(const QUrl &url) { url_ = url; }
    void setTimeout(std::chrono::milliseconds timeout) { timeout_ = timeout; }
    void setCurrentVersion(const QString &version) { current_ = version; }

signals:
    // After each check, once the user has been told or asked.
    void finished(const quorval::UpdateChecker::Result &result);

private:
    void start();
    void replyFinished();
    void timedOut();
    // Stops the reply once its body has passed kMaxAnswerBytes.
    void received(qint64 bytes);
    void conclude(const Result &result);
    void tell(const QString &text);

    UpdateHost host_;
    QUrl url_;
    std::chrono::milliseconds timeout_ = kTimeout;
    QString current_;
    QNetworkAccessManager *network_;
    // The request under way, owned by network_; null when none.
    QNetworkReply *reply_ = nullptr;
    QTimer timer_;
    bool onRequest_ = false;
    bool timedOut_ = false;
    bool tooLong_ = false;
};

} // namespace quorval

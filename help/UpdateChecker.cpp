#include "help/UpdateChecker.h"

#include "options/Messages.h"
#include "options/Parameters.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>

#include <algorithm>

namespace quorval {

const QString UpdateChecker::kTitle = QStringLiteral("Check for Updates");

namespace {

// Whole numbers only: "1.2.0-rc1" or "v1.2" are not versions this program can order.
std::optional<QList<int>> versionParts(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("^\\d{1,9}(\\.\\d{1,9}){0,3}$"));
    if (!pattern.match(text).hasMatch())
        return std::nullopt;
    QList<int> parts;
    for (const QString &part : text.split(QLatin1Char('.')))
        parts.append(part.toInt());
    while (parts.size() < 4)
        parts.append(0);
    return parts;
}

UpdateChecker::Result failure(const QString &reason)
{
    return {UpdateChecker::Outcome::Failed, {}, {}, reason};
}

// Qt's own words, except where they say too little: a packed answer that would unpack to far
// more than it is ("Decompression failed: " and nothing after).
QString errorText(const QNetworkReply &reply)
{
    const QByteArray packing = reply.rawHeader("Content-Encoding").trimmed().toLower();
    if (reply.error() == QNetworkReply::UnknownContentError && !packing.isEmpty() &&
        packing != "identity")
        return QStringLiteral("the update service's answer (packed with %1) could not be "
                              "unpacked, or would unpack to far more than a version document; "
                              "it was refused")
            .arg(QString::fromLatin1(packing));
    return reply.errorString();
}

} // namespace

UpdateChecker::UpdateChecker(UpdateHost host, QObject *parent)
    : QObject(parent), host_(std::move(host)), url_(serviceUrl()), current_(currentVersion()),
      network_(new QNetworkAccessManager(this))
{
    timer_.setSingleShot(true);
    connect(&timer_, &QTimer::timeout, this, &UpdateChecker::timedOut);
}

UpdateChecker::~UpdateChecker()
{
    if (reply_) {
        reply_->disconnect(this);
        reply_->abort();
    }
}

QUrl UpdateChecker::serviceUrl()
{
    const QString fromEnvironment = qEnvironmentVariable("QUORVAL_UPDATE_URL");
    return QUrl(fromEnvironment.isEmpty() ? QStringLiteral(QUORVAL_UPDATE_DEFAULT_URL)
                                          : fromEnvironment);
}

QString UpdateChecker::currentVersion()
{
    return QStringLiteral(QUORVAL_VERSION);
}

std::optional<int> UpdateChecker::compareVersions(const QString &a, const QString &b)
{
    const auto left = versionParts(a);
    const auto right = versionParts(b);
    if (!left || !right)
        return std::nullopt;
    if (*left == *right)
        return 0;
    return *left < *right ? -1 : 1;
}

UpdateChecker::Result UpdateChecker::readAnswer(const QByteArray &json, const QString &current)
{
    const QString notADocument = QStringLiteral("the update service's answer is not a version "
                                                "document");
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return failure(notADocument);
    const QJsonObject object = document.object();
    const QString version = object.value(QStringLiteral("version")).toString().trimmed();
    const QUrl download(object.value(QStringLiteral("download")).toString().trimmed(),
                        QUrl::StrictMode);
    const std::optional<int> order = compareVersions(version, current);
    const bool webPage =
        download.isValid() && !download.host().isEmpty() &&
        (download.scheme() == QLatin1String("https") || download.scheme() == QLatin1String("http"));
    if (!order || !webPage)
        return failure(notADocument);
    return {*order > 0 ? Outcome::Newer : Outcome::Newest, version, download, {}};
}

bool UpdateChecker::checkAtStartup()
{
    if (isChecking())
        return false;
    Parameters &parameters = Parameters::shared();
    // A stored text that is none of the choices falls back on the first, "Always".
    switch (parameters.checkForUpdatesOnStartup.index()) {
    case 2:
        return false;
    case 1:
        if (parameters.lastUpdateCheck.value() > 0.0)
            return false;
        break;
    default:
        break;
    }
    onRequest_ = false;
    start();
    return true;
}

void UpdateChecker::checkOnRequest()
{
    onRequest_ = true;
    if (!isChecking())
        start();
}

void UpdateChecker::start()
{
    timedOut_ = false;
    tooLong_ = false;
    QNetworkRequest request(url_);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Quorval/%1").arg(current_));
    // Always ask the service itself: a cached answer could hide a release.
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    reply_ = network_->get(request);
    connect(reply_, &QNetworkReply::finished, this, &UpdateChecker::replyFinished);
    connect(reply_, &QNetworkReply::downloadProgress, this,
            [this](qint64 bytes, qint64 total) { received(std::max(bytes, total)); });
    timer_.start(timeout_);
}

void UpdateChecker::timedOut()
{
    if (!reply_)
        return;
    timedOut_ = true;
    reply_->abort(); // finishes the reply at once with OperationCanceledError
}

void UpdateChecker::received(qint64 bytes)
{
    if (!reply_ || bytes <= kMaxAnswerBytes)
        return;
    tooLong_ = true;
    reply_->abort(); // finishes the reply at once, before more is read
}

void UpdateChecker::replyFinished()
{
    QNetworkReply *reply = reply_;
    reply_ = nullptr;
    timer_.stop();
    reply->deleteLater();

    Result result;
    if (timedOut_) {
        result = failure(QStringLiteral("%1 did not answer within %2 seconds")
                             .arg(url_.host().isEmpty() ? url_.toString() : url_.host())
                             .arg(static_cast<double>(timeout_.count()) / 1000.0));
    } else if (tooLong_) {
        result = failure(QStringLiteral("the update service's answer is longer than %1 MB, so it "
                                        "is not a version document; it was not read")
                             .arg(kMaxAnswerBytes / (1024 * 1024)));
    } else if (reply->error() != QNetworkReply::NoError) {
        result = failure(errorText(*reply));
    } else {
        result = readAnswer(reply->readAll(), current_);
    }
    conclude(result);
}

void UpdateChecker::conclude(const Result &result)
{
    const bool onRequest = onRequest_;
    onRequest_ = false;
    Parameters &parameters = Parameters::shared();
    if (result.outcome != Outcome::Failed) {
        parameters.setLastVersion(result.version);
        (void)parameters.lastUpdateCheck.setValue(
            static_cast<double>(QDateTime::currentSecsSinceEpoch()));
    }

    switch (result.outcome) {
    case Outcome::Failed:
        if (onRequest)
            tell(QStringLiteral("Can't check for updates: %1").arg(result.reason));
        break;
    case Outcome::Newest:
        if (onRequest)
            tell(QStringLiteral("This is the newest version of Quorval (%1).").arg(current_));
        break;
    case Outcome::Newer: {
        if (!onRequest && parameters.ignoreUpdateVersion.value() == result.version)
            break;
        const QString question =
            QStringLiteral("Quorval %1 is available; this is %2.\nOpen the download page %3 "
                           "in your browser? Quorval then quits so that you can install the new "
                           "version.")
                .arg(result.version, current_, result.download.toDisplayString());
        const bool yes = host_.ask && host_.ask(kTitle, question);
        if (!yes) {
            // Asked once at start-up is enough for this version; the menu still offers it.
            if (!onRequest)
                parameters.setIgnoreUpdateVersion(result.version);
            break;
        }
        const bool opened = host_.openUrl ? host_.openUrl(result.download)
                                          : QDesktopServices::openUrl(result.download);
        if (!opened) {
            tell(QStringLiteral("Can't open the download page %1 in a browser.")
                     .arg(result.download.toString()));
            break;
        }
        if (host_.quit)
            host_.quit();
        else
            QCoreApplication::quit();
        break;
    }
    }
    emit finished(result);
}

void UpdateChecker::tell(const QString &text)
{
    if (host_.tell)
        host_.tell(kTitle, text);
    else
        showMessage(kTitle, text);
}

} // namespace quorval

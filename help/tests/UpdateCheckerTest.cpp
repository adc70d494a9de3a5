#include "help/UpdateChecker.h"

#include "options/Parameters.h"
#include "options/tests/support/OptionsTestStore.h"

#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

namespace quorval {
namespace {

// Serves one canned answer over HTTP on the loopback address, or takes the request and never
// answers. extraHeaders go before the body (each ending in CRLF).
class VersionServer : public QObject
{
public:
    explicit VersionServer(QByteArray body, bool answers = true, QByteArray extraHeaders = {})
        : body_(std::move(body)), extraHeaders_(std::move(extraHeaders)), answers_(answers)
    {
        EXPECT_TRUE(server_.listen(QHostAddress::LocalHost));
        connect(&server_, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = server_.nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
        });
    }

    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/latest.json").arg(server_.serverPort()));
    }
    int requests = 0;

private:
    void serve(QTcpSocket *socket)
    {
        received_ += socket->readAll();
        if (!received_.contains("\r\n\r\n"))
            return;
        received_.clear();
        ++requests;
        if (!answers_)
            return;
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(body_.size()) + "\r\n" + extraHeaders_ +
                      "Connection: close\r\n\r\n" + body_);
        socket->disconnectFromHost();
    }

    QTcpServer server_;
    QByteArray body_;
    QByteArray extraHeaders_;
    QByteArray received_;
    bool answers_;
};

// Answers every request with a body that does not end: it writes on as long as the client reads
// (up to `most` bytes, so a client that never stops still ends).
class EndlessServer : public QObject
{
public:
    explicit EndlessServer(qint64 most) : most_(most)
    {
        EXPECT_TRUE(server_.listen(QHostAddress::LocalHost));
        connect(&server_, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = server_.nextPendingConnection()) {
                socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                              "Connection: close\r\n\r\n{\"version\": \"");
                connect(socket, &QTcpSocket::bytesWritten, this, [this, socket] {
                    if (sent < most_ && socket->bytesToWrite() == 0) {
                        socket->write(QByteArray(64 * 1024, '9'));
                        sent += 64 * 1024;
                    }
                });
            }
        });
    }

    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/latest.json").arg(server_.serverPort()));
    }
    qint64 sent = 0;

private:
    QTcpServer server_;
    qint64 most_;
};

QByteArray versionDocument(const char *version)
{
    return QByteArray(R"({"version": ")") + version +
           R"(", "download": "https://example.org/quorval/download"})";
}

// A port on which nothing listens: taken, then given back.
QUrl refusingUrl()
{
    QTcpServer server;
    EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
    const quint16 port = server.serverPort();
    server.close();
    return QUrl(QStringLiteral("http://127.0.0.1:%1/latest.json").arg(port));
}

// A checker of version 1.2.0 whose window answers questions with `answer` and records all.
class UpdateCheckerTest : public StoreTest
{
protected:
    UpdateCheckerTest()
        : checker({.tell = [this](const QString &, const QString &text) { told.append(text); },
                   .ask =
                       [this](const QString &, const QString &text) {
                           asked.append(text);
                           return answer;
                       },
                   .openUrl =
                       [this](const QUrl &url) {
                           opened.append(url);
                           return opens;
                       },
                   .quit = [this] { ++quits; }})
    {
        checker.setCurrentVersion(QStringLiteral("1.2.0"));
        checker.setTimeout(std::chrono::milliseconds(400));
    }

    // Runs one check against url and waits for its end.
    UpdateChecker::Result check(const QUrl &url, bool onRequest = true)
    {
        checker.setUrl(url);
        QSignalSpy spy(&checker, &UpdateChecker::finished);
        if (onRequest)
            checker.checkOnRequest();
        else if (!checker.checkAtStartup())
            return {};
        EXPECT_TRUE(spy.wait(10000));
        return spy.isEmpty() ? UpdateChecker::Result{}
                             : spy.first().first().value<UpdateChecker::Result>();
    }

    UpdateChecker checker;
    bool answer = true;
    bool opens = true;
    QStringList told;
    QStringList asked;
    QList<QUrl> opened;
    int quits = 0;
};

TEST(UpdateVersions, orderNumbersPartByPartAndRefuseWhatIsNoVersion)
{
    EXPECT_EQ(UpdateChecker::compareVersions("1.10.0", "1.9.3"), 1);
    EXPECT_EQ(UpdateChecker::compareVersions("1.9.3", "1.10.0"), -1);
    EXPECT_EQ(UpdateChecker::compareVersions("1.2", "1.2.0"), 0);
    EXPECT_EQ(UpdateChecker::compareVersions("2", "1.99.99.99"), 1);
    for (const char *bad : {"", "v1.2", "1.2.0-rc1", "1..2", "1.2.3.4.5"}) {
        EXPECT_FALSE(UpdateChecker::compareVersions(bad, "1.0")) << bad;
        EXPECT_FALSE(UpdateChecker::compareVersions("1.0", bad)) << bad;
    }
}

TEST(UpdateVersions, answersWithoutAVersionOrAWebPageAreRefused)
{
    const QString current = QStringLiteral("1.0.0");
    for (const char *json : {R"({"version": "2.0.0"})", R"({"download": "https://example.org"})",
                             R"({"version": 2, "download": "https://example.org"})",
                             R"({"version": "2.0.0", "download": "file:///etc/passwd"})",
                             R"(["2.0.0", "https://example.org"])", "", "<html>Not found</html>"}) {
        const UpdateChecker::Result result = UpdateChecker::readAnswer(json, current);
        EXPECT_EQ(result.outcome, UpdateChecker::Outcome::Failed) << json;
        EXPECT_FALSE(result.reason.isEmpty()) << json;
    }
    const UpdateChecker::Result newer = UpdateChecker::readAnswer(
        R"({"version": " 1.0.1 ", "download": "http://example.org/get"})", current);
    EXPECT_EQ(newer.outcome, UpdateChecker::Outcome::Newer);
    EXPECT_EQ(newer.version, "1.0.1");
    EXPECT_EQ(newer.download, QUrl("http://example.org/get"));
}

TEST_F(UpdateCheckerTest, onRequestEveryOutcomeIsTold)
{
    VersionServer same(versionDocument("1.2.0"));
    EXPECT_EQ(check(same.url()).outcome, UpdateChecker::Outcome::Newest);
    VersionServer older(versionDocument("1.1.9"));
    EXPECT_EQ(check(older.url()).outcome, UpdateChecker::Outcome::Newest);
    ASSERT_EQ(told.size(), 2);
    EXPECT_EQ(told[0], "This is the newest version of Quorval (1.2.0).");
    EXPECT_EQ(told[1], told[0]);
    // Each successful check is noted, with what the service offered.
    EXPECT_EQ(Parameters::shared().lastversion.value(), "1.1.9");
    EXPECT_GT(Parameters::shared().lastUpdateCheck.value(), 0.0);

    told.clear();
    VersionServer malformed(R"({"version": "1.3.0", "download": )");
    EXPECT_EQ(check(malformed.url()).outcome, UpdateChecker::Outcome::Failed);
    VersionServer silent(versionDocument("9.0.0"), false);
    EXPECT_EQ(check(silent.url()).outcome, UpdateChecker::Outcome::Failed);
    EXPECT_EQ(silent.requests, 1);
    EXPECT_EQ(check(refusingUrl()).outcome, UpdateChecker::Outcome::Failed);
    ASSERT_EQ(told.size(), 3);
    for (const QString &text : told)
        EXPECT_TRUE(text.startsWith("Can't check for updates: ")) << text.toStdString();
    EXPECT_TRUE(told[0].contains("not a version document")) << told[0].toStdString();
    EXPECT_TRUE(told[1].contains("did not answer within 0.4 seconds")) << told[1].toStdString();
    EXPECT_TRUE(told[2].contains("refused", Qt::CaseInsensitive)) << told[2].toStdString();
    EXPECT_TRUE(asked.isEmpty());
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_EQ(quits, 0);
    // Failures leave the last good check as it was.
    EXPECT_EQ(Parameters::shared().lastversion.value(), "1.1.9");
}

TEST_F(UpdateCheckerTest, anAnswerTooLongToBeAVersionIsCutOffAndSaysSo)
{
    checker.setTimeout(std::chrono::milliseconds(20000));
    // A body without end, and one that says it is huge, are refused once past the limit.
    const qint64 most = 128 * UpdateChecker::kMaxAnswerBytes;
    EndlessServer endless(most);
    EXPECT_EQ(check(endless.url()).outcome, UpdateChecker::Outcome::Failed);
    // Cut off long before the server gave up (what it wrote ahead sits in the system's buffers).
    EXPECT_LT(endless.sent, most);
    // A small packed body that unpacks to far more than a version document.
    const QByteArray zeros(32 * UpdateChecker::kMaxAnswerBytes, '0');
    VersionServer bomb(qCompress(zeros, 9).mid(4), true, "Content-Encoding: deflate\r\n");
    EXPECT_EQ(check(bomb.url()).outcome, UpdateChecker::Outcome::Failed);
    ASSERT_EQ(told.size(), 2);
    for (const QString &text : told) {
        EXPECT_TRUE(text.startsWith("Can't check for updates: the update service's answer"))
            << text.toStdString();
        EXPECT_TRUE(text.contains("not a version document") ||
                    text.contains("more than a version document"))
            << text.toStdString();
    }
    EXPECT_TRUE(told[0].contains("longer than 1 MB")) << told[0].toStdString();
    EXPECT_TRUE(asked.isEmpty());
}

TEST_F(UpdateCheckerTest, aNewerVersionOffersItsPageAndQuitsOnlyOnYes)
{
    VersionServer newer(versionDocument("1.10.0"));
    answer = false;
    EXPECT_EQ(check(newer.url()).outcome, UpdateChecker::Outcome::Newer);
    ASSERT_EQ(asked.size(), 1);
    EXPECT_TRUE(asked[0].startsWith("Quorval 1.10.0 is available; this is 1.2.0."))
        << asked[0].toStdString();
    // The question says where yes leads.
    EXPECT_TRUE(asked[0].contains("https://example.org/quorval/download"))
        << asked[0].toStdString();
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_EQ(quits, 0);
    // Declining from the menu is no reason to stay quiet at the next start.
    EXPECT_TRUE(Parameters::shared().ignoreUpdateVersion.value().isEmpty());

    answer = true;
    (void)check(newer.url());
    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened[0], QUrl("https://example.org/quorval/download"));
    EXPECT_EQ(quits, 1);
    EXPECT_TRUE(told.isEmpty());

    // A browser that will not start leaves the program running and says where to go.
    opens = false;
    (void)check(newer.url());
    EXPECT_EQ(quits, 1);
    ASSERT_EQ(told.size(), 1);
    EXPECT_TRUE(told[0].contains("https://example.org/quorval/download")) << told[0].toStdString();
}

TEST_F(UpdateCheckerTest, atStartupTheOptionDecidesAndOnlyANewVersionSpeaks)
{
    Parameters &parameters = Parameters::shared();
    VersionServer same(versionDocument("1.2.0"));

    ASSERT_TRUE(parameters.checkForUpdatesOnStartup.setValue("Never"));
    checker.setUrl(same.url());
    EXPECT_FALSE(checker.checkAtStartup());
    EXPECT_FALSE(checker.isChecking());

    ASSERT_TRUE(parameters.checkForUpdatesOnStartup.setValue("Once"));
    EXPECT_EQ(check(same.url(), false).outcome, UpdateChecker::Outcome::Newest);
    EXPECT_FALSE(checker.checkAtStartup()) << "once has been checked";
    EXPECT_EQ(same.requests, 1);

    ASSERT_TRUE(parameters.checkForUpdatesOnStartup.setValue("Always"));
    EXPECT_EQ(check(same.url(), false).outcome, UpdateChecker::Outcome::Newest);
    EXPECT_EQ(check(refusingUrl(), false).outcome, UpdateChecker::Outcome::Failed);
    VersionServer silent(versionDocument("3.0"), false);
    EXPECT_EQ(check(silent.url(), false).outcome, UpdateChecker::Outcome::Failed);
    EXPECT_EQ(same.requests, 2);
    EXPECT_TRUE(told.isEmpty());

    // A new version declined at start-up is not offered there again, but the menu offers it.
    VersionServer newer(versionDocument("1.3"));
    answer = false;
    (void)check(newer.url(), false);
    (void)check(newer.url(), false);
    EXPECT_EQ(asked.size(), 1);
    EXPECT_EQ(parameters.ignoreUpdateVersion.value(), "1.3");
    (void)check(newer.url());
    EXPECT_EQ(asked.size(), 2);
    VersionServer newest(versionDocument("1.4"));
    (void)check(newest.url(), false);
    EXPECT_EQ(asked.size(), 3);
    EXPECT_EQ(quits, 0);
}

TEST_F(UpdateCheckerTest, aCheckRunsBehindTheEventLoopAndARequestJoinsARunningOne)
{
    VersionServer slow(versionDocument("1.2.0"), false);
    checker.setUrl(slow.url());
    checker.setTimeout(std::chrono::milliseconds(1500));
    ASSERT_TRUE(checker.checkAtStartup());
    // Nothing has waited for the service: the call is back before the request was even read.
    EXPECT_TRUE(checker.isChecking());
    EXPECT_EQ(slow.requests, 0);
    EXPECT_FALSE(checker.checkAtStartup());

    QSignalSpy spy(&checker, &UpdateChecker::finished);
    checker.checkOnRequest();
    ASSERT_TRUE(spy.wait(10000));
    EXPECT_EQ(spy.size(), 1);
    EXPECT_EQ(slow.requests, 1);
    // The start-up check turned into the requested one, so its failure is told.
    ASSERT_EQ(told.size(), 1);
    EXPECT_TRUE(told[0].contains("did not answer within 1.5 seconds")) << told[0].toStdString();
}

TEST_F(UpdateCheckerTest, theEnvironmentNamesTheService)
{
    const QByteArray saved = qgetenv("QUORVAL_UPDATE_URL");
    VersionServer same(versionDocument(UpdateChecker::currentVersion().toUtf8().constData()));
    qputenv("QUORVAL_UPDATE_URL", same.url().toEncoded());
    UpdateHost host;
    host.tell = [this](const QString &, const QString &text) { told.append(text); };
    UpdateChecker fromEnvironment(host);
    EXPECT_EQ(UpdateChecker::serviceUrl(), same.url());
    QSignalSpy spy(&fromEnvironment, &UpdateChecker::finished);
    fromEnvironment.checkOnRequest();
    ASSERT_TRUE(spy.wait(10000));
    EXPECT_EQ(same.requests, 1);
    EXPECT_EQ(told, QStringList{"This is the newest version of Quorval (" +
                                UpdateChecker::currentVersion() + ")."});

    qunsetenv("QUORVAL_UPDATE_URL");
    const QUrl builtIn = UpdateChecker::serviceUrl();
    EXPECT_TRUE(builtIn.isValid() && builtIn.scheme() == "https")
        << builtIn.toString().toStdString();
    if (!saved.isEmpty())
        qputenv("QUORVAL_UPDATE_URL", saved);
}

} // namespace
} // namespace quorval

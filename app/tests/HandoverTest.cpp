// Files handed to the running window by later launches, through real sockets.
#include "app/HandoverServer.h"
#include "app/IncomingFiles.h"
#include "app/tests/WindowTest.h"
#include "audio/tests/ChildProcess.h"

#include <QDialog>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLocalSocket>
#include <QMimeData>
#include <QSignalSpy>
#include <QTimer>
#include <QUrl>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <poll.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace quorval {
namespace {

using Answer = AskViewController::Answer;

// Sets an environment variable for the length of a scope.
class ScopedVariable
{
public:
    ScopedVariable(const char *name, const QByteArray &value)
        : name(name), had(qEnvironmentVariableIsSet(name)), old(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~ScopedVariable()
    {
        if (had)
            qputenv(name, old);
        else
            qunsetenv(name);
    }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;

private:
    const char *name;
    bool had;
    QByteArray old;
};

// A launch handing over paths as the program's own sender does, without waiting: the window
// under test runs on this thread. The end marker is only written when `end`.
std::unique_ptr<QLocalSocket> handOver(const QStringList &paths, bool end = true)
{
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(HandoverServer::windowSocketPath());
    QByteArray message;
    for (const QString &path : paths)
        message += QFile::encodeName(path).toPercentEncoding("/") + '\n';
    socket->write(end ? message + '\n' : message);
    return socket;
}

// The window with the hand-over socket in a private runtime folder of the test's own.
class HandoverTest : public WindowTest
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(runtime.isValid());
        ASSERT_TRUE(QFile::setPermissions(runtime.path(),
                                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        runtimeVariable =
            std::make_unique<ScopedVariable>("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
        WindowTest::SetUp();
        // A window that failed to launch has no document to hand files to.
        if (HasFatalFailure() || IsSkipped())
            return;
        server = std::make_unique<HandoverServer>();
        QObject::connect(server.get(), &HandoverServer::received, document->incoming,
                         &IncomingFiles::add);
        ASSERT_TRUE(server->listen(HandoverServer::windowSocketPath()));
    }

    void TearDown() override
    {
        server.reset();
        WindowTest::TearDown();
        runtimeVariable.reset();
    }

    // The sockets the window holds for senders now.
    qsizetype held() const { return server->findChildren<QLocalSocket *>().size(); }

    QTemporaryDir runtime;
    std::unique_ptr<ScopedVariable> runtimeVariable;
    std::unique_ptr<HandoverServer> server;
};

// A file dropped on the window takes the hand-over's path: an unsaved take is asked about first.
TEST_F(HandoverTest, aDroppedFileReplacesAnUnsavedTakeOnlyAfterTheQuestion)
{
    const QString other = dir.filePath(QStringLiteral("other.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, other));
    document->newRecording();
    std::shared_ptr<WavStream> take = controller->wavStream();
    ASSERT_TRUE(take && take->appendSamples(std::vector<std::int16_t>(4410, 1000)));
    ASSERT_TRUE(take->modified);
    const QString question = QStringLiteral(
        "Save modified file? | New File has been modified.\nDo you want to save it?");

    QMimeData dragged;
    dragged.setUrls({QUrl::fromLocalFile(other)});
    const QPointF middle = QRectF(delegate->mainView->rect()).center();
    QDragEnterEvent enter(middle.toPoint(), Qt::CopyAction, &dragged, Qt::LeftButton, {});
    QApplication::sendEvent(delegate->mainView, &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(middle, Qt::CopyAction, &dragged, Qt::LeftButton, {});
    answers = {Answer::cancel};
    QApplication::sendEvent(delegate->mainView, &drop);
    WAIT_FOR(!dialogs.isEmpty(), 10000);
    EXPECT_EQ(dialogs, QStringList{question});
    EXPECT_EQ(controller->wavStream(), take);
}

// What no sound can be read from (each reason is the sound's own) is refused in a message that
// names it, cut to a readable length, and blocks nothing: a FIFO is never waited on.
TEST_F(HandoverTest, whatIsNoSoundFileIsRefusedWithAReasonAndBlocksNothing)
{
    const QString pipe = dir.filePath(QStringLiteral("pipe.wav"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    std::vector<std::pair<QString, const char *>> cases = {
        {pipe, "not a regular file (a FIFO)"},
        {dir.filePath(QString(5000, QLatin1Char('n')) + QStringLiteral(".wav")),
         "file name too long"}};
    // The owner of everything reads what is closed to others.
    if (::geteuid() != 0) {
        const QString closed = dir.filePath(QStringLiteral("closed.wav"));
        ASSERT_TRUE(QFile::copy(demoPath, closed));
        ASSERT_TRUE(QFile::setPermissions(closed, QFileDevice::Permissions()));
        cases.emplace_back(closed, "permission denied");
    }
    for (const auto &[path, reason] : cases) {
        dialogs.clear();
        const std::unique_ptr<QLocalSocket> sender = handOver({path});
        WAIT_FOR(!dialogs.isEmpty(), 10000);
        ASSERT_EQ(dialogs.size(), 1);
        EXPECT_TRUE(dialogs[0].startsWith(QLatin1String(" | Can't read sound file | \"") +
                                          QFileInfo(path).fileName().left(40)))
            << dialogs[0].toStdString();
        EXPECT_TRUE(dialogs[0].contains(QLatin1String(reason))) << dialogs[0].toStdString();
        EXPECT_LT(dialogs[0].size(), 200);
        EXPECT_TRUE(title().contains(QLatin1String("demo.wav"))) << title().toStdString();
    }
}

TEST_F(HandoverTest, sendersThatOverstepTheirBoundsAreDroppedAndNothingOfThemIsUsed)
{
    const QString second = dir.filePath(QStringLiteral("second.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, second));
    auto droppedUnanswered = [](QLocalSocket &sender) {
        return QTest::qWaitFor([&] { return sender.state() == QLocalSocket::UnconnectedState; },
                               10000) &&
               !sender.readAll().contains("ok");
    };
    // A message without end, one too many files, and one cut short by its sender.
    const std::unique_ptr<QLocalSocket> endless = handOver({}, false);
    endless->write(QByteArray(HandoverServer::kMaxMessageBytes + 1, 'x'));
    EXPECT_TRUE(droppedUnanswered(*endless));
    const std::unique_ptr<QLocalSocket> many =
        handOver(QStringList(HandoverServer::kMaxPaths + 1, second));
    EXPECT_TRUE(droppedUnanswered(*many));
    const std::unique_ptr<QLocalSocket> cut = handOver({second}, false);
    cut->disconnectFromServer();
    WAIT_FOR(held() == 0, 10000);
    EXPECT_TRUE(title().contains(QLatin1String("demo.wav"))) << title().toStdString();
    // A whole one is taken and answered.
    const std::unique_ptr<QLocalSocket> whole = handOver({second});
    WAIT_FOR(title().contains(QLatin1String("second.wav")), 10000);
    QByteArray answer;
    WAIT_FOR((answer += whole->readAll()).contains("ok"), 10000);
    EXPECT_TRUE(dialogs.isEmpty()) << dialogs.join('\n').toStdString();

    // A sender that says nothing is dropped after the timeout.
    HandoverServer quick(nullptr, std::chrono::milliseconds(100));
    const QString quickPath = runtime.filePath(QStringLiteral("quick"));
    ASSERT_TRUE(quick.listen(quickPath));
    QLocalSocket silent;
    silent.connectToServer(quickPath);
    WAIT_FOR(quick.connections() == 1, 5000);
    EXPECT_TRUE(droppedUnanswered(silent));
    EXPECT_EQ(quick.connections(), 0);
}

// The number of descriptors this process has open.
int openDescriptors()
{
    return static_cast<int>(QDir(QStringLiteral("/proc/self/fd")).count()) - 2;
}

// A child that connects `count` times to path and keeps every connection open until its
// parent closes `hold`; it writes one byte to `done` when all are made. Only system calls after
// the fork: the parent's Qt state is not the child's to use.
[[noreturn]] void flood(const QByteArray &path, int count, int done, int hold)
{
    rlimit limit = {static_cast<rlim_t>(count + 64), static_cast<rlim_t>(count + 64)};
    (void)::setrlimit(RLIMIT_NOFILE, &limit);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    for (int made = 0; made < count;) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        if (fd < 0)
            ::_exit(2);
        if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
            ++made;
            continue;
        }
        ::close(fd);
        if (errno != EAGAIN)
            ::_exit(3);
        ::usleep(1000); // the window's backlog is full: it has not taken the last ones yet
    }
    const char byte = 1;
    (void)!::write(done, &byte, 1);
    char ignored = 0;
    (void)!::read(hold, &ignored, 1);
    ::_exit(0);
}

TEST_F(HandoverTest, aFloodOfLaunchesCostsTheWindowNoDescriptors)
{
    // About as many connections as the usual limit of 1024 descriptors allows, all held open.
    constexpr int kFlood = 1100;
    const int before = openDescriptors();
    int done[2] = {};
    int hold[2] = {};
    ASSERT_EQ(::pipe2(done, O_CLOEXEC | O_NONBLOCK), 0);
    ASSERT_EQ(::pipe2(hold, O_CLOEXEC), 0);
    const QByteArray path = QFile::encodeName(HandoverServer::windowSocketPath());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(done[0]);
        ::close(hold[1]); // or the child would wait for itself
        flood(path, kFlood, done[1], hold[0]);
    }
    ::close(done[1]);
    ::close(hold[0]);
    int most = 0;
    const bool flooded = QTest::qWaitFor(
        [&] {
            most = std::max(most, openDescriptors() - before);
            char byte = 0;
            return ::read(done[0], &byte, 1) == 1;
        },
        60000);
    EXPECT_TRUE(flooded) << "the window did not take " << kFlood << " connections in 60 s";
    EXPECT_LE(held(), HandoverServer::kMaxConnections);
    EXPECT_LT(most, 4 * HandoverServer::kMaxConnections) << "descriptors the flood cost";
    ::close(hold[1]);
    ::close(done[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    // Once the flood's senders are gone the window takes a file as before.
    WAIT_FOR(held() == 0, 10000);
    const QString second = dir.filePath(QStringLiteral("second.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, second));
    const std::unique_ptr<QLocalSocket> whole = handOver({second});
    WAIT_FOR(title().contains(QLatin1String("second.wav")), 10000);
}

// A socket of this process's at path, listening but never answering; closed with the object
// (the file stays, as after a crash).
class RawSocket
{
public:
    explicit RawSocket(const QString &path) : fd(::socket(AF_UNIX, SOCK_STREAM, 0))
    {
        const QByteArray name = QFile::encodeName(path);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.constData(), static_cast<std::size_t>(name.size()));
        EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(fd, 4), 0);
    }
    ~RawSocket() { ::close(fd); }
    RawSocket(const RawSocket &) = delete;
    RawSocket &operator=(const RawSocket &) = delete;
    // Whether anyone connected.
    [[nodiscard]] bool called() const
    {
        pollfd wait = {fd, POLLIN, 0};
        return ::poll(&wait, 1, 0) == 1;
    }

private:
    int fd;
};

unsigned modeOf(const QString &path)
{
    struct stat info = {};
    EXPECT_EQ(::lstat(QFile::encodeName(path).constData(), &info), 0) << path.toStdString();
    return info.st_mode & 07777;
}

TEST(HandoverSocket, livesInAFolderOnlyItsUserEntersAndTakesNothingElsesPlace)
{
    QTemporaryDir base;
    ASSERT_TRUE(base.isValid());
    const ScopedVariable temp("TMPDIR", QFile::encodeName(base.path()));
    const QString fallback = base.filePath(QStringLiteral("quorval-%1").arg(::geteuid()));
    const QString open = base.filePath(QStringLiteral("open"));
    const QString own = base.filePath(QStringLiteral("own"));
    ASSERT_EQ(::mkdir(QFile::encodeName(open).constData(), 0755), 0);
    ASSERT_EQ(::mkdir(QFile::encodeName(own).constData(), 0700), 0);
    {
        // A runtime folder others may enter is passed over for one of our own, made 0700.
        const ScopedVariable runtime("XDG_RUNTIME_DIR", QFile::encodeName(open));
        EXPECT_EQ(HandoverServer::privateFolder(), fallback);
        EXPECT_EQ(modeOf(fallback), 0700u);
    }
    {
        const ScopedVariable runtime("XDG_RUNTIME_DIR", QFile::encodeName(own));
        EXPECT_EQ(HandoverServer::privateFolder(), own);
    }
    {
        // Without one, a fallback that is a link or open to others is refused.
        const ScopedVariable runtime("XDG_RUNTIME_DIR", QByteArray());
        ASSERT_TRUE(QDir(fallback).removeRecursively());
        ASSERT_TRUE(QFile::link(own, fallback));
        EXPECT_FALSE(HandoverServer::privateFolder());
        ASSERT_TRUE(QFile::remove(fallback));
        ASSERT_EQ(::mkdir(QFile::encodeName(fallback).constData(), 0755), 0);
        EXPECT_FALSE(HandoverServer::privateFolder());
    }

    // Our own stale socket is replaced; a live one is left to its window.
    const QString name = own + QStringLiteral("/socket");
    {
        const RawSocket stale(name);
    }
    HandoverServer first;
    EXPECT_TRUE(first.listen(name));
    HandoverServer second;
    EXPECT_FALSE(second.listen(name));
    EXPECT_TRUE(HandoverServer::isOwnSocket(name));
    // A file or a link at the name is refused and left as it is, and nothing is sent there.
    const QString planted = own + QStringLiteral("/planted");
    {
        QFile file(planted);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("mine");
    }
    const QString target = own + QStringLiteral("/target");
    const RawSocket listener(target);
    const QString link = own + QStringLiteral("/link");
    ASSERT_TRUE(QFile::link(target, link));
    for (const QString &path : {planted, link}) {
        HandoverServer server;
        EXPECT_FALSE(server.listen(path)) << path.toStdString();
        EXPECT_FALSE(HandoverServer::isOwnSocket(path));
        EXPECT_FALSE(HandoverServer::send(path, {QStringLiteral(QUORVAL_DEMO_WAV)}));
    }
    EXPECT_FALSE(listener.called());
    QFile file(planted);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "mine");
    EXPECT_TRUE(QFileInfo(link).isSymLink());
}

// Runs fn in a child as the user uid and returns its exit status.
template <class Fn> int asUser(uid_t uid, gid_t gid, Fn fn)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(30);
        if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
            ::_exit(100);
        ::_exit(fn());
    }
    int status = -1;
    // The parent's event loop runs meanwhile: the child may talk to a server of this thread.
    (void)QTest::qWaitFor([&] { return ::waitpid(child, &status, WNOHANG) == child; }, 40000);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(HandoverSocket, anotherUserCanNeitherHandOverNorReceive)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "a second user can only be made as root";
    test::ChildProcess useradd("useradd", {"--system", "--no-create-home", "quorval-probe"});
    (void)useradd.finish(30000);
    const passwd *other = ::getpwnam("quorval-probe");
    if (!other)
        GTEST_SKIP() << "useradd could not make the user quorval-probe";
    const uid_t uid = other->pw_uid;
    const gid_t gid = other->pw_gid;

    // A folder the other user may pass through, to reach what is planted for or against it.
    // Under the shared temporary folder itself, which every user may pass through.
    QTemporaryDir base(QStringLiteral("/tmp/quorval-probe-XXXXXX"));
    ASSERT_TRUE(base.isValid());
    ASSERT_EQ(::chmod(QFile::encodeName(base.path()).constData(), 0711), 0);
    const QString name = base.filePath(QStringLiteral("socket"));
    HandoverServer server;
    ASSERT_TRUE(server.listen(name));
    ASSERT_EQ(::chmod(QFile::encodeName(name).constData(), 0777), 0);
    QSignalSpy received(&server, &HandoverServer::received);
    const QByteArray path = QFile::encodeName(name);
    // 0: connected, sent and got "ok"; 1: no answer; 2: could not connect.
    const int status = asUser(uid, gid, [&path] {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
        if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            return 2;
        const char message[] = "/etc/passwd\n\n";
        (void)::send(fd, message, sizeof message - 1, MSG_NOSIGNAL);
        char answer[3] = {};
        return ::read(fd, answer, 2) == 2 && answer[0] == 'o' ? 0 : 1;
    });
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(received.isEmpty());

    // Another user's socket at our name gets nothing from us.
    const QString planted = base.filePath(QStringLiteral("planted"));
    const RawSocket trap(planted);
    ASSERT_EQ(::lchown(QFile::encodeName(planted).constData(), uid, gid), 0);
    EXPECT_FALSE(HandoverServer::isOwnSocket(planted));
    EXPECT_FALSE(HandoverServer::send(planted, {QStringLiteral("/home/victim/lesson.wav")}));
    EXPECT_FALSE(trap.called());
    HandoverServer displaced;
    EXPECT_FALSE(displaced.listen(planted));
    EXPECT_TRUE(QFileInfo::exists(planted));

    // Nor does its folder under the temporary folder stand in for ours.
    const ScopedVariable temp("TMPDIR", QFile::encodeName(base.path()));
    const ScopedVariable runtime("XDG_RUNTIME_DIR", QByteArray());
    const QByteArray fallback =
        QFile::encodeName(base.filePath(QStringLiteral("quorval-%1").arg(::geteuid())));
    ASSERT_EQ(::mkdir(fallback.constData(), 0700), 0);
    ASSERT_EQ(::chown(fallback.constData(), uid, gid), 0);
    EXPECT_FALSE(HandoverServer::privateFolder());
}

} // namespace
} // namespace quorval

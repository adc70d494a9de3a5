#include "app/tests/WindowTest.h"
#include "display/DisplayView.h"

#include <QAction>
#include <QFileInfo>

namespace quorval {
namespace {

// Help > About names the program, this build's version and the licence.
TEST_F(WindowTest, aboutNamesTheVersionAndTheLicence)
{
    window->aboutMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(
        dialogs[0].startsWith(QStringLiteral("About Quorval | Quorval " QUORVAL_VERSION "\n")))
        << dialogs[0].toStdString();
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral("GNU General Public License")));
}

// File > Properties gives the file's full path, or says it was never saved, and its length as
// minutes and seconds too.
TEST_F(WindowTest, propertiesGiveThePathAndTheLengthInMinutesAndSeconds)
{
    // 16-bit mono: the length follows from the file's size.
    const double seconds = static_cast<double>(QFileInfo(demoPath).size() - 44) / (2 * 44100.0);
    const int tenths = static_cast<int>(std::lround(seconds * 10.0));
    const QString length = QStringLiteral("%1:%2.%3")
                               .arg(tenths / 600)
                               .arg(tenths % 600 / 10, 2, 10, QLatin1Char('0'))
                               .arg(tenths % 10);
    dialogs.clear();
    window->propertiesMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("File Properties | File ") +
                                      QFileInfo(demoPath).absoluteFilePath() + QLatin1Char('\n')))
        << dialogs[0].toStdString();
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral(" minutes (") + length + QLatin1Char(')')))
        << dialogs[0].toStdString() << " " << length.toStdString();

    // A take never saved has no path; once saved, it is where it went.
    document->newRecording();
    dialogs.clear();
    window->propertiesMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("File Properties | Not saved yet\n")))
        << dialogs[0].toStdString();
    savePath = dir.filePath(QStringLiteral("take.wav"));
    document->saveAs();
    dialogs.clear();
    window->propertiesMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("File Properties | File ") + *savePath +
                                      QStringLiteral("\nNumber of channels")))
        << dialogs[0].toStdString();
}

} // namespace
} // namespace quorval

// The help's pictures as the program's help viewer finds them: those drawn from the demo by the
// command-line tool and those of the panes drawn by the window share one resource tree.
#include "help/HelpViewer.h"

#include <QImage>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QUrl>

#include <gtest/gtest.h>

namespace quorval {
namespace {

// Whether more than a hundredth of picture differs from its corner: something is drawn.
bool hasDrawing(const QImage &picture)
{
    const QRgb corner = picture.pixel(0, 0);
    qsizetype differing = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            differing += picture.pixel(x, y) != corner ? 1 : 0;
    return differing * 100 > static_cast<qsizetype>(picture.width()) * picture.height();
}

TEST(HelpPictures, theViewerFindsEveryPictureAPageNames)
{
    HelpViewer viewer;
    QStringList named;
    for (const QString &topic : HelpViewer::topics()) {
        ASSERT_TRUE(viewer.openHelp(topic));
        const QTextDocument &page = *viewer.browser()->document();
        for (QTextBlock block = page.begin(); block.isValid(); block = block.next())
            for (auto fragment = block.begin(); !fragment.atEnd(); ++fragment) {
                const QTextCharFormat format = fragment.fragment().charFormat();
                if (!format.isImageFormat())
                    continue;
                const QString name = format.toImageFormat().name();
                named.append(name);
                const QVariant data =
                    viewer.browser()->loadResource(QTextDocument::ImageResource, QUrl(name));
                const QImage picture = QImage::fromData(data.toByteArray());
                EXPECT_GT(picture.width(), 200)
                    << topic.toStdString() << ": " << name.toStdString();
                EXPECT_TRUE(picture.isNull() || hasDrawing(picture)) << name.toStdString();
            }
    }
    if (qEnvironmentVariableIsSet("QUORVAL_TEST_PICTURES")) {
        ASSERT_TRUE(viewer.openHelp(QStringLiteral("Manual#notetable")));
        viewer.grab().save(qEnvironmentVariable("QUORVAL_TEST_PICTURES") + "/help-panes.png");
    }
    // The panes and the strip are shown, not only told.
    for (const char *pane : {"note-table", "live-readout", "overview-strip"})
        EXPECT_TRUE(named.contains(QStringLiteral("pictures/%1.png").arg(QLatin1String(pane))))
            << pane;
}

} // namespace
} // namespace quorval

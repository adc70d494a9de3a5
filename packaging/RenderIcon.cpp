// Draws the SVG icon into square PNGs of the sizes the icon theme asks for, at build time.
// Usage: quorval-render-icon ICON.svg SIZE OUT.png
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // The platform layer warns without the session's private runtime folder, as in a build: this
    // run has one of its own.
    QTemporaryDir runtimeFolder(QDir::tempPath() + "/quorval-runtime-XXXXXX");
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR") && runtimeFolder.isValid())
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeFolder.path()));
    QGuiApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    bool sizeOk = false;
    const int size = arguments.value(2).toInt(&sizeOk);
    if (arguments.size() != 4 || !sizeOk || size < 8 || size > 1024) {
        std::fprintf(stderr, "usage: quorval-render-icon ICON.svg SIZE OUT.png\n");
        return 2;
    }
    QSvgRenderer svg(arguments[1]);
    if (!svg.isValid()) {
        std::fprintf(stderr, "%s: not a readable SVG file\n", qPrintable(arguments[1]));
        return 1;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter);
    painter.end();
    if (!image.save(arguments[3])) {
        std::fprintf(stderr, "%s: cannot write\n", qPrintable(arguments[3]));
        return 1;
    }
    return 0;
}

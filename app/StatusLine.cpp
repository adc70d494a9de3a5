#include "app/StatusLine.h"

#include "streams/MusicStream.h"
#include "streams/TimeText.h"
#include "streams/WavStream.h"

#include <QLabel>
#include <QProgressBar>
#include <QStatusBar>
#include <QTimer>

namespace quorval {

namespace {

QString timeText(double seconds)
{
    return QString::fromStdString(minutesAndSeconds(seconds));
}

} // namespace

StatusLine::StatusLine(QStatusBar *statusBar)
    : QObject(statusBar), soundLabel(new QLabel(statusBar)), hoverLabel(new QLabel(statusBar)),
      selectionLabel(new QLabel(statusBar)), analysisBar(new QProgressBar(statusBar)),
      bar(statusBar), timer(new QTimer(this))
{
    // The sound's file name as it stands, never as markup.
    soundLabel->setTextFormat(Qt::PlainText);
    analysisBar->setRange(0, 0);
    analysisBar->setMaximumWidth(120);
    analysisBar->setToolTip(tr("Analysing the sound"));
    analysisBar->hide();
    bar->addWidget(hoverLabel, 1);
    bar->addPermanentWidget(selectionLabel);
    bar->addPermanentWidget(analysisBar);
    bar->addPermanentWidget(soundLabel);
    timer->setInterval(250);
    connect(timer, &QTimer::timeout, this, &StatusLine::refresh);
}

void StatusLine::setMusic(const std::shared_ptr<MusicStream> &shown)
{
    music = shown;
    refresh();
}

void StatusLine::showHover(const QString &text)
{
    hoverLabel->setText(text);
}

void StatusLine::showSelection(double start, double end)
{
    if (start < 0.0 || end <= start) {
        selectionLabel->clear();
        return;
    }
    selectionLabel->setText(
        tr("Selection %1 to %2 (%3 s)")
            .arg(timeText(start), timeText(end), QString::asprintf("%.2f", end - start)));
}

void StatusLine::showScaleTaken(const QString &what)
{
    bar->showMessage(what, kScaleTakenMs);
}

void StatusLine::start()
{
    timer->start();
}

void StatusLine::refresh()
{
    const std::shared_ptr<MusicStream> shown = music.lock();
    if (!shown) {
        soundLabel->clear();
        analysisBar->hide();
        return;
    }
    const MusicStream::TimeRange range = shown->timeRange();
    soundLabel->setText(QString::fromStdString(shown->wavStream->fileTitle) + QStringLiteral("  ") +
                        timeText(range.duration));
    analysisBar->setVisible(shown->isCalculating() || shown->wavStream->copying);
}

} // namespace quorval

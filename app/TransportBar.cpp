#include "app/TransportBar.h"

#include "app/LevelMeter.h"
#include "app/Transport.h"
#include "audio/Recorder.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QStyle>
#include <QToolButton>

#include <algorithm>
#include <utility>

namespace quorval {

namespace {

QIcon recordIcon()
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(200, 30, 30));
    painter.drawEllipse(QRectF(7, 7, 18, 18));
    return QIcon(pixmap);
}

} // namespace

QToolButton *makeToolButton(QWidget *parent, const QIcon &icon, const QString &text,
                            const QString &toolTip, bool checkable)
{
    auto *button = new QToolButton(parent);
    if (icon.isNull())
        button->setText(text);
    else
        button->setIcon(icon);
    button->setToolTip(toolTip);
    button->setCheckable(checkable);
    button->setFocusPolicy(Qt::NoFocus);
    button->setAutoRaise(false);
    button->setMinimumSize(30, 28);
    return button;
}

TransportBar::TransportBar(Transport &model, QWidget *parent) : QWidget(parent), transport(model)
{
    QStyle *s = style();
    rewindButton = makeToolButton(this, s->standardIcon(QStyle::SP_MediaSkipBackward), {},
                                  tr("Rewind to the start (b)"), false);
    fastForwardButton = makeToolButton(this, s->standardIcon(QStyle::SP_MediaSkipForward), {},
                                       tr("Fast forward to the end (d)"), false);
    playButton = makeToolButton(this, s->standardIcon(QStyle::SP_MediaPlay), {},
                                tr("Play the selection, or from the needle (p)"), true);
    pauseButton = makeToolButton(this, s->standardIcon(QStyle::SP_MediaPause), {},
                                 tr("Pause playing or recording (space)"), true);
    recordButton =
        makeToolButton(this, recordIcon(), {}, tr("Record from the microphone (r)"), true);
    loopButton = makeToolButton(this, s->standardIcon(QStyle::SP_BrowserReload), {},
                                tr("Play the selection again and again (l)"), true);
    speedBox = new QComboBox(this);
    // Fastest first, as the keys step through them.
    for (auto it = Player::kSpeeds.rbegin(); it != Player::kSpeeds.rend(); ++it)
        speedBox->addItem(QString::number(*it) + QStringLiteral("\u00D7"), *it);
    speedBox->setToolTip(tr("Playing speed, at the same pitch ([ slower, ] faster)"));
    speedBox->setFocusPolicy(Qt::NoFocus);
    toneButton =
        makeToolButton(this, {}, QStringLiteral("\u266A"),
                       tr("Reference tone at the nearest note of the scale (hold t)"), true);
    levelMeter = new LevelMeter([this] { return transport.recorder().levels(); }, this);
    oneTouchLabel = new QLabel(this);
    oneTouchLabel->setMinimumWidth(150);

    auto *bar = new QHBoxLayout(this);
    bar->setContentsMargins(0, 0, 0, 0);
    for (QWidget *w :
         std::initializer_list<QWidget *>{rewindButton, fastForwardButton, playButton, pauseButton,
                                          recordButton, loopButton, speedBox, toneButton})
        bar->addWidget(w);
    bar->addSpacing(8);
    bar->addWidget(levelMeter);
    bar->addWidget(oneTouchLabel);

    forward(playButton, [this] { transport.togglePlay(); });
    forward(pauseButton, [this] { transport.togglePause(); });
    forward(recordButton, [this] { transport.toggleRecord(); });
    forward(loopButton, [this] { transport.playhead().setLoop(loopButton->isChecked()); });
    forward(rewindButton, [this] { jumped(transport.playhead().rewind()); });
    forward(fastForwardButton, [this] { jumped(transport.playhead().fastForward()); });
    connect(speedBox, &QComboBox::currentIndexChanged, this, [this](int i) {
        (void)transport.playhead().setSpeed(speedBox->itemData(i).toDouble());
    });
}

void TransportBar::forward(QToolButton *button, const std::function<void()> &command)
{
    connect(button, &QToolButton::clicked, this, [this, command] {
        command();
        emit changed();
    });
}

void TransportBar::jumped(std::optional<double> seconds)
{
    if (seconds)
        emit needleJumped(*seconds);
}

void TransportBar::stepSpeed(int step)
{
    speedBox->setCurrentIndex(
        std::clamp(speedBox->currentIndex() + step, 0, speedBox->count() - 1));
}

void TransportBar::refresh()
{
    playButton->setChecked(transport.playOn());
    pauseButton->setChecked(transport.pauseOn());
    recordButton->setChecked(transport.recordOn());
    loopButton->setChecked(transport.playhead().loop());
    playButton->setEnabled(transport.canTogglePlay());
    recordButton->setEnabled(transport.canToggleRecord());
    pauseButton->setEnabled(transport.canTogglePause());
    // One look at the sound on the data queue for both.
    const bool needleMoves = transport.playhead().canMoveNeedle();
    rewindButton->setEnabled(needleMoves);
    fastForwardButton->setEnabled(needleMoves);
    levelMeter->setActive(transport.isRecording());

    QString hint;
    if (transport.oneTouch()) {
        if (transport.isPlaying() || transport.isRecording())
            hint = tr("Touch space to pause");
        else if (transport.state() == Transport::State::playPaused)
            hint = tr("Touch space to play");
        else if (transport.state() == Transport::State::recordPaused)
            hint = tr("Touch space to record");
    }
    oneTouchLabel->setText(hint);
}

} // namespace quorval

#include "app/MainViewController.h"

#include "analysis/Check.h"
#include "app/AppDelegate.h"
#include "app/AskViewController.h"
#include "app/LevelMeter.h"
#include "app/MainView.h"
#include "audio/Player.h"
#include "audio/Recorder.h"
#include "audio/ReferenceTone.h"
#include "display/ColumnHeaderView.h"
#include "display/RowHeaderView.h"
#include "display/TraceArea.h"
#include "options/Parameters.h"
#include "options/dialog/OptionsMenu.h"
#include "options/dialog/ParmViewController.h"
#include "scale/Scale.h"
#include "streams/MusicStream.h"
#include "streams/ParallelAnalysis.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <utility>

namespace quorval {

namespace {

const QString kFilePrompt = QStringLiteral("File... New, Open, Save, saveAs");
const QString kViewPrompt =
    QStringLiteral("View... Composite, RMS Amplitude, Amplitude, Pitch, Quality, Spectrum");

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

QToolButton *makeButton(QWidget *parent, const QIcon &icon, const QString &text,
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

} // namespace

double MainViewController::NeedleView::playMark() const
{
    return Quorval::needleTime;
}

void MainViewController::NeedleView::setPlayMark(double seconds)
{
    Quorval::needleTime = seconds;
}

MainViewController::MainViewController(MainView *view, AppDelegate *delegate)
    : QObject(view), mainView(view), scrollView(new TraceArea(view)),
      displayView(scrollView->displayView), columnHeaderView(scrollView->columnHeaderView),
      rowHeaderView(scrollView->rowHeaderView), appDelegate(delegate),
      promptTimer(new QTimer(this)), recorder(std::make_unique<Recorder>()),
      player(std::make_unique<Player>(needleView)), recordTimer(new QTimer(this))
{
    QUORVAL_CHECK(mainView && appDelegate);
    mainView->controller = this;
    buildLayout();

    promptTimer->setSingleShot(true);
    promptTimer->setInterval(1000);
    connect(promptTimer, &QTimer::timeout, this, &MainViewController::clearPrompt);
    // While recording the needle follows the end of the sound and the title its modified mark.
    recordTimer->setInterval(50);
    connect(recordTimer, &QTimer::timeout, this, &MainViewController::followRecording);

    connect(displayView, &DisplayView::scrollOutChanged, this,
            &MainViewController::refreshControls);
    connect(displayView, &DisplayView::selectionChanged, this,
            [this](double start, double end) { needleView.setSelection(start, end); });
    connect(displayView, &DisplayView::playStartChanged, this, [this](double t) {
        if (!Quorval::playing && !Quorval::recording)
            moveNeedle(t);
    });
    recorder->setEndedCallback([this] {
        QMetaObject::invokeMethod(this, &MainViewController::recordingEnded, Qt::QueuedConnection);
    });
    refreshControls();
}

MainViewController::~MainViewController()
{
    player->stop();
    recorder->stop();
}

void MainViewController::buildLayout()
{
    QStyle *style = mainView->style();
    rewindButton = makeButton(mainView, style->standardIcon(QStyle::SP_MediaSkipBackward), {},
                              tr("Rewind to the start (b)"), false);
    fastForwardButton = makeButton(mainView, style->standardIcon(QStyle::SP_MediaSkipForward), {},
                                   tr("Fast forward to the end (d)"), false);
    playButton = makeButton(mainView, style->standardIcon(QStyle::SP_MediaPlay), {},
                            tr("Play the selection, or from the needle (p)"), true);
    pauseButton = makeButton(mainView, style->standardIcon(QStyle::SP_MediaPause), {},
                             tr("Pause playing or recording (space)"), true);
    recordButton =
        makeButton(mainView, recordIcon(), {}, tr("Record from the microphone (r)"), true);
    loopButton = makeButton(mainView, style->standardIcon(QStyle::SP_BrowserReload), {},
                            tr("Play the selection again and again"), true);
    toneButton = makeButton(mainView, {}, QStringLiteral("\u266A"),
                            tr("Reference tone at the nearest note of the scale (hold t)"), true);
    speedBox = new QComboBox(mainView);
    // Fastest first, as the keys step through them.
    for (auto it = Player::kSpeeds.rbegin(); it != Player::kSpeeds.rend(); ++it)
        speedBox->addItem(QString::number(*it) + QStringLiteral("\u00D7"), *it);
    speedBox->setToolTip(tr("Playing speed, at the same pitch ([ slower, ] faster)"));
    speedBox->setFocusPolicy(Qt::NoFocus);
    oneTouchLabel = new QLabel(mainView);
    oneTouchLabel->setMinimumWidth(150);
    keyLabel = new QLabel(mainView);
    aFreqLabel = new QLabel(mainView);
    tuningCheckbox = new QCheckBox(tr("Tuning"), mainView);
    tuningCheckbox->setToolTip(tr("Use the tuning offset (u)"));
    tuningCheckbox->setFocusPolicy(Qt::NoFocus);
    keyButton = new QPushButton(tr("Key..."), mainView);
    keyButton->setToolTip(tr("Choose the key, mode and temperament (k)"));
    keyButton->setFocusPolicy(Qt::NoFocus);
    optionsButton = new QPushButton(tr("Options..."), mainView);
    optionsButton->setToolTip(tr("All options (o)"));
    optionsButton->setFocusPolicy(Qt::NoFocus);
    hZoomInButton = makeButton(mainView, {}, QStringLiteral("+"), tr("Zoom in in time (+)"), false);
    hZoomOutButton =
        makeButton(mainView, {}, QStringLiteral("\u2212"), tr("Zoom out in time (-)"), false);
    hToggleButton = makeButton(mainView, {}, QStringLiteral("\u2194"), {}, true);
    vZoomInButton =
        makeButton(mainView, {}, QStringLiteral("+"), tr("Zoom in in height (Page Up)"), false);
    vZoomOutButton = makeButton(mainView, {}, QStringLiteral("\u2212"),
                                tr("Zoom out in height (Page Down)"), false);
    vToggleButton = makeButton(mainView, {}, QStringLiteral("\u2195"), {}, true);

    auto *bar = new QHBoxLayout;
    for (QWidget *w : std::initializer_list<QWidget *>{rewindButton, fastForwardButton, playButton,
                                                       pauseButton, recordButton, loopButton})
        bar->addWidget(w);
    bar->addWidget(speedBox);
    bar->addWidget(toneButton);
    bar->addSpacing(8);
    levelMeter = new LevelMeter([this] { return recorder->levels(); }, mainView);
    bar->addWidget(levelMeter);
    bar->addWidget(oneTouchLabel);
    bar->addStretch();
    bar->addWidget(keyLabel);
    bar->addWidget(keyButton);
    bar->addSpacing(8);
    bar->addWidget(aFreqLabel);
    bar->addWidget(tuningCheckbox);
    bar->addWidget(optionsButton);
    bar->addSpacing(12);
    bar->addWidget(new QLabel(tr("Time"), mainView));
    for (QWidget *w :
         std::initializer_list<QWidget *>{hZoomInButton, hZoomOutButton, hToggleButton})
        bar->addWidget(w);
    bar->addSpacing(8);
    bar->addWidget(new QLabel(tr("Height"), mainView));
    for (QWidget *w :
         std::initializer_list<QWidget *>{vZoomInButton, vZoomOutButton, vToggleButton})
        bar->addWidget(w);

    auto *layout = new QVBoxLayout(mainView);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addLayout(bar);
    layout->addWidget(scrollView, 1);

    connect(rewindButton, &QToolButton::clicked, this, &MainViewController::rewindButtonPushed);
    connect(fastForwardButton, &QToolButton::clicked, this,
            &MainViewController::fastForwardButtonPushed);
    connect(playButton, &QToolButton::clicked, this, &MainViewController::playButtonPushed);
    connect(pauseButton, &QToolButton::clicked, this, &MainViewController::pauseButtonPushed);
    connect(recordButton, &QToolButton::clicked, this, &MainViewController::recordButtonPushed);
    connect(loopButton, &QToolButton::clicked, this, &MainViewController::loopButtonPushed);
    connect(speedBox, &QComboBox::currentIndexChanged, this,
            [this](int i) { (void)player->setSpeed(speedBox->itemData(i).toDouble()); });
    connect(toneButton, &QToolButton::toggled, this,
            [this](bool on) { on ? startReferenceTone() : stopReferenceTone(); });
    toneTimer = new QTimer(this);
    toneTimer->setInterval(100);
    connect(toneTimer, &QTimer::timeout, this, [this] {
        if (tone && tone->isSounding())
            tone->setFrequency(referenceFrequency());
    });
    connect(tuningCheckbox, &QCheckBox::clicked, this, &MainViewController::tuningBoxChecked);
    connect(keyButton, &QPushButton::clicked, this, &MainViewController::keyButtonPushed);
    connect(optionsButton, &QPushButton::clicked, this, &MainViewController::optionsButtonPushed);
    connect(hZoomInButton, &QToolButton::clicked, this, &MainViewController::hZoomIn);
    connect(hZoomOutButton, &QToolButton::clicked, this, &MainViewController::hZoomOut);
    connect(hToggleButton, &QToolButton::clicked, this, &MainViewController::hToggle);
    connect(vZoomInButton, &QToolButton::clicked, this, &MainViewController::vZoomIn);
    connect(vZoomOutButton, &QToolButton::clicked, this, &MainViewController::vZoomOut);
    connect(vToggleButton, &QToolButton::clicked, this, &MainViewController::vToggle);
}

std::shared_ptr<WavStream> MainViewController::wavStream() const
{
    return music ? music->wavStream : nullptr;
}

void MainViewController::setMusicStream(std::shared_ptr<MusicStream> stream)
{
    stopTransport();
    clearPrompt();
    prepKey.clear();
    // The old sound's helpers end before it goes; the new one is analysed on every core.
    parallel.reset();
    music = std::move(stream);
    Quorval::setMusicStream(music);
    if (music)
        parallel = std::make_unique<ParallelAnalysis>(music, ParallelAnalysis::defaultJobs());
    needleView.setSelection(-1.0, -1.0);
    const Extent e = soundExtent();
    moveNeedle(e.lowest);
    if (music && oneTouch())
        prepare(e.frames == 0 && canRecordInto());
    displayView->dataChanged();
    refreshControls();
}

bool MainViewController::selectAll()
{
    const Extent e = soundExtent();
    if (!music || e.frames == 0 || Quorval::playing || Quorval::recording)
        return false;
    music->timeView->selectionStart = e.lowest;
    music->timeView->selectionEnd = e.highest;
    needleView.setSelection(e.lowest, e.highest);
    moveNeedle(e.lowest);
    DisplayView::requestRedraw();
    return true;
}

bool MainViewController::oneTouch() const
{
    return Parameters::shared().oneTouchPlayRecord.value();
}

MainViewController::Extent MainViewController::soundExtent() const
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav)
        return {};
    return Quorval::dataQueue().sync([&wav] {
        Extent e;
        e.lowest = wav->xScale * static_cast<double>(wav->minimumIndex_D());
        e.highest = wav->xScale * static_cast<double>(wav->maximumIndex_D());
        e.frames = wav->maximumIndex_D() - wav->minimumIndex_D();
        return e;
    });
}

bool MainViewController::canRecordInto() const
{
    const std::shared_ptr<WavStream> wav = wavStream();
    // The recorder delivers 16-bit mono at its own rate, and appends it as it comes.
    return wav && wav->nChannels() == Recorder::nChannels &&
           wav->bytesPerSample() == Recorder::bitDepth / 8 &&
           wav->sampleRate() == Recorder::sampleRate;
}

void MainViewController::moveNeedle(double timeSeconds)
{
    Quorval::needleTime = timeSeconds;
    Quorval::playStartTime = timeSeconds;
}

void MainViewController::prepare(bool forRecord)
{
    pauseButton->setChecked(true);
    playButton->setChecked(!forRecord);
    recordButton->setChecked(forRecord);
}

void MainViewController::rewindButtonPushed()
{
    const Extent e = soundExtent();
    moveNeedle(e.lowest);
    if (displayView->hView->functionOfTime)
        displayView->hView->setLeftTime(e.lowest, displayView->refreshExtent(), true);
    refreshControls();
}

void MainViewController::fastForwardButtonPushed()
{
    const Extent e = soundExtent();
    moveNeedle(e.highest);
    // Leaves most of the view before the end, with room for a recording to grow.
    if (displayView->hView->functionOfTime)
        displayView->hView->setLeftTime(e.highest, displayView->refreshExtent(), true);
    refreshControls();
}

void MainViewController::playButtonPushed()
{
    if (playButton->isChecked()) {
        if (recordButton->isChecked()) {
            recordButton->setChecked(false);
            stopRecording();
        }
        if (oneTouch() && !Quorval::playing)
            pauseButton->setChecked(true);
        if (!pauseButton->isChecked() && !Quorval::playing)
            startPlayback();
    } else if (Quorval::playing) {
        stopPlayback();
    }
    refreshControls();
}

void MainViewController::pauseButtonPushed()
{
    if (pauseButton->isChecked()) {
        if (playButton->isChecked() && Quorval::playing)
            stopPlayback();
        if (recordButton->isChecked() && Quorval::recording)
            stopRecording();
    } else {
        if (playButton->isChecked() && !Quorval::playing)
            startPlayback();
        if (recordButton->isChecked() && !Quorval::recording)
            startRecording();
    }
    refreshControls();
}

void MainViewController::recordButtonPushed()
{
    if (recordButton->isChecked()) {
        if (playButton->isChecked()) {
            playButton->setChecked(false);
            stopPlayback();
        }
        if (oneTouch() && !Quorval::recording)
            pauseButton->setChecked(true);
        if (!pauseButton->isChecked() && !Quorval::recording)
            startRecording();
    } else if (Quorval::recording) {
        stopRecording();
    }
    refreshControls();
}

void MainViewController::loopButtonPushed()
{
    Quorval::loop = loopButton->isChecked();
    refreshControls();
}

void MainViewController::startPlayback()
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav)
        return;
    // Playback reads the working file: everything copied into it must be there.
    wav->waitForCopy();
    const Extent e = soundExtent();
    // The needle belongs to the player's queue while it plays.
    if (Quorval::needleTime >= e.highest)
        Quorval::displayQueue().sync([&e] { Quorval::needleTime = e.lowest; });
    QPointer<MainViewController> self(this);
    // Quorval::playing is set by the player only when it starts.
    (void)player->start(*wav, [self] {
        QMetaObject::invokeMethod(
            qApp,
            [self] {
                if (self)
                    self->playbackFinished();
            },
            Qt::QueuedConnection);
    });
}

void MainViewController::stopPlayback()
{
    player->stop();
    Quorval::playing = false;
    DisplayView::requestRedraw();
}

void MainViewController::playbackFinished()
{
    if (Quorval::playing || !playButton->isChecked())
        return;
    if (oneTouch()) {
        prepare(false);
    } else {
        playButton->setChecked(false);
        pauseButton->setChecked(false);
    }
    refreshControls();
}

void MainViewController::startRecording()
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav || !canRecordInto())
        return;
    // The recorder says why it cannot start; the button stays on with nothing recording.
    if (!recorder->start(wav))
        return;
    wav->modified = true;
    moveNeedle(soundExtent().highest);
    recordTimer->start();
    emit soundChanged();
}

void MainViewController::stopRecording()
{
    if (!recorder->isRecording())
        return;
    recorder->stop();
    recordTimer->stop();
    followRecording();
    if (music)
        music->soundGrew();
}

void MainViewController::recordingEnded()
{
    recordTimer->stop();
    recordButton->setChecked(false);
    pauseButton->setChecked(false);
    followRecording();
    refreshControls();
}

void MainViewController::followRecording()
{
    Quorval::needleTime = soundExtent().highest;
    DisplayView::requestRedraw();
    emit soundChanged();
}

void MainViewController::stopTransport()
{
    if (Quorval::playing)
        stopPlayback();
    stopRecording();
    playButton->setChecked(false);
    pauseButton->setChecked(false);
    recordButton->setChecked(false);
    refreshControls();
}

void MainViewController::tuningBoxChecked()
{
    (void)Parameters::shared().tuning.setValue(tuningCheckbox->isChecked());
    refreshControls();
}

void MainViewController::optionsButtonPushed()
{
    appDelegate->optionsMenu->optionsMenuItemSelected();
    refreshControls();
}

void MainViewController::keyButtonPushed()
{
    if (!appDelegate->optionsMenu->dialog().isVisible())
        appDelegate->optionsMenu->openOptionsAt(QStringLiteral("Key"));
    refreshControls();
}

void MainViewController::hZoomIn()
{
    displayView->hZoom(Parameters::shared().zoomIncrement.value());
    refreshControls();
}

void MainViewController::hZoomOut()
{
    if (displayView->canHScrollOut())
        displayView->hZoom(1.0 / Parameters::shared().zoomIncrement.value());
    refreshControls();
}

void MainViewController::hToggle()
{
    displayView->hToggle();
    refreshControls();
}

void MainViewController::vZoomIn()
{
    displayView->vZoom(Parameters::shared().zoomIncrement.value());
    refreshControls();
}

void MainViewController::vZoomOut()
{
    displayView->vZoom(1.0 / Parameters::shared().zoomIncrement.value());
    refreshControls();
}

void MainViewController::vToggle()
{
    displayView->vToggle();
    refreshControls();
}

void MainViewController::showPrompt(const QString &message)
{
    displayView->setPromptMessage(message);
    promptTimer->start();
    displayView->update();
}

void MainViewController::clearPrompt()
{
    promptTimer->stop();
    if (!displayView->promptMessage().isEmpty()) {
        displayView->setPromptMessage(QString());
        displayView->update();
    }
}

bool MainViewController::keyDown(const QKeyEvent &event)
{
    clearPrompt();
    const Qt::KeyboardModifiers mods = event.modifiers() & ~Qt::KeypadModifier;
    if (mods & Qt::ControlModifier) {
        prepKey.clear();
        switch (event.key()) {
        case Qt::Key_N:
            appDelegate->newFileMenuItemSelected();
            return true;
        case Qt::Key_O:
            appDelegate->openFileMenuItemSelected();
            return true;
        case Qt::Key_S:
            if (appDelegate->fileSaveMenuItem->isEnabled())
                appDelegate->saveFileMenuItemSelected();
            return true;
        default:
            return false;
        }
    }
    switch (event.key()) {
    case Qt::Key_PageUp:
        prepKey.clear();
        if (vZoomInButton->isEnabled())
            vZoomInButton->click();
        return true;
    case Qt::Key_PageDown:
        prepKey.clear();
        if (vZoomOutButton->isEnabled())
            vZoomOutButton->click();
        return true;
    case Qt::Key_Escape:
        prepKey.clear();
        if (mainView->window()->isFullScreen())
            mainView->window()->showNormal();
        return true;
    default:
        break;
    }
    const QString text = event.text();
    if (text.isEmpty())
        return false;
    const QString prefix = std::exchange(prepKey, QString());
    return keyAction(prefix, text.front());
}

bool MainViewController::keyUp(const QKeyEvent &event)
{
    if (event.key() != Qt::Key_T || event.isAutoRepeat())
        return false;
    // The button keeps the tone on after the key is let go.
    if (!toneButton->isChecked())
        stopReferenceTone();
    return true;
}

void MainViewController::startReferenceTone()
{
    if (!tone)
        tone = ReferenceTone::make();
    if (!tone) {
        showPrompt(tr("No sound output for the reference tone"));
        return;
    }
    tone->start(referenceFrequency());
    toneTimer->start();
}

void MainViewController::stopReferenceTone()
{
    toneTimer->stop();
    if (tone)
        tone->stop();
}

void MainViewController::stepSpeed(int step)
{
    speedBox->setCurrentIndex(
        std::clamp(speedBox->currentIndex() + step, 0, speedBox->count() - 1));
}

double MainViewController::playingSpeed() const
{
    return player->playingSpeed();
}

bool MainViewController::referenceToneSounding() const
{
    return tone && tone->isSounding();
}

double MainViewController::referenceFrequency()
{
    const Scale scale = Scale::current();
    if (const std::shared_ptr<PitchStream> pitch = music ? music->pitchStream() : nullptr) {
        const double at = Quorval::needleTime / pitch->xScale - pitch->overlap;
        const auto count = static_cast<double>(pitch->maximumIndex());
        if (std::isfinite(at) && at >= 0.0 && at < count) {
            const double p = music->pitchAt(static_cast<std::int64_t>(at));
            if (p > 0.0)
                lastTonePitch = p;
        }
    }
    // Without a pitch heard yet: the tonic above middle C.
    const double p = lastTonePitch > 0.0 ? lastTonePitch : 60.0 + scale.settings().keyPitchClass;
    return scale.frequency(p - scale.deviation(p));
}

bool MainViewController::keyAction(const QString &prefix, QChar c)
{
    auto click = [](QAbstractButton *button) {
        if (button->isEnabled())
            button->click();
        return true;
    };
    if (prefix == QLatin1String("f")) {
        switch (c.toLatin1()) {
        case 'n':
            appDelegate->newFileMenuItemSelected();
            return true;
        case 'o':
            appDelegate->openFileMenuItemSelected();
            return true;
        case 's':
            appDelegate->saveFileMenuItemSelected();
            return true;
        case 'a':
            appDelegate->saveAsFileMenuItemSelected();
            return true;
        default:
            break;
        }
    } else if (prefix == QLatin1String("v")) {
        const int i = QStringLiteral("crapqs").indexOf(c);
        if (i >= 0) {
            appDelegate->setViewType(i);
            return true;
        }
    }
    switch (c.toLatin1()) {
    case ' ':
        return click(pauseButton);
    case 'p':
        return click(playButton);
    case 'r':
        return click(recordButton);
    case 'b':
        return click(rewindButton);
    case 'd':
        return click(fastForwardButton);
    case '+':
    case '=':
        return click(hZoomInButton);
    case '-':
        return click(hZoomOutButton);
    case 'u':
        return click(tuningCheckbox);
    case 't':
        startReferenceTone();
        return true;
    case '[':
        stepSpeed(+1);
        return true;
    case ']':
        stepSpeed(-1);
        return true;
    case 'k':
        return click(keyButton);
    case 'o':
        return click(optionsButton);
    case 'f':
        prepKey = QStringLiteral("f");
        showPrompt(kFilePrompt);
        return true;
    case 'v':
        prepKey = QStringLiteral("v");
        showPrompt(kViewPrompt);
        return true;
    default:
        return false;
    }
}

void MainViewController::refreshControls()
{
    Parameters &parameters = Parameters::shared();
    const Extent e = soundExtent();
    const bool hasSound = music != nullptr;
    const bool play = playButton->isChecked();
    const bool pause = pauseButton->isChecked();
    const bool record = recordButton->isChecked();

    levelMeter->setActive(recorder->isRecording());
    playButton->setEnabled((!record || pause) && e.frames > 0);
    recordButton->setEnabled(canRecordInto());
    pauseButton->setEnabled(play || record);
    rewindButton->setEnabled(e.frames > 0 && !Quorval::recording);
    fastForwardButton->setEnabled(e.frames > 0 && !Quorval::recording);
    loopButton->setChecked(Quorval::loop);

    QString hint;
    if (oneTouch()) {
        if (Quorval::playing || Quorval::recording)
            hint = tr("Touch space to pause");
        else if (play && pause)
            hint = tr("Touch space to play");
        else if (record && pause)
            hint = tr("Touch space to record");
    }
    oneTouchLabel->setText(hint);

    keyLabel->setText(QStringLiteral("%1 %2").arg(
        parameters.key.value(), parameters.minor.value() ? tr("Minor") : tr("Major")));
    aFreqLabel->setText(QString::asprintf("A = %.1f", parameters.aFrequency.value()));
    tuningCheckbox->setChecked(parameters.tuning.value());

    const bool h = displayView->canHScrollOut();
    const bool v = displayView->canVScrollOut();
    for (QToolButton *b :
         {hZoomInButton, hToggleButton, vZoomInButton, vZoomOutButton, vToggleButton})
        b->setEnabled(hasSound);
    hZoomOutButton->setEnabled(hasSound && h);
    hToggleButton->setChecked(h);
    hToggleButton->setToolTip(h ? tr("Zoom out full") : tr("Restore zoom"));
    vToggleButton->setChecked(v);
    vToggleButton->setToolTip(v ? tr("Zoom out full") : tr("Restore zoom"));

    QString title = QStringLiteral("Quorval");
    if (const std::shared_ptr<WavStream> wav = wavStream()) {
        title += QStringLiteral(" - ") + QString::fromStdString(wav->fileTitle);
        if (wav->modified)
            title += QStringLiteral(" *");
    }
    mainView->window()->setWindowTitle(title);
    displayView->redrawAll();
}

bool MainViewController::windowShouldClose()
{
    if (!appDelegate->shouldDiscardModifiedSound())
        return false;
    stopTransport();
    if (const std::shared_ptr<WavStream> wav = wavStream())
        wav->modified = false;
    return true;
}

} // namespace quorval

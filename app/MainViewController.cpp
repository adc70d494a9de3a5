#include "app/MainViewController.h"

#include "analysis/Check.h"
#include "app/AskViewController.h"
#include "app/KeyPrompt.h"
#include "app/MainView.h"
#include "app/ToneControl.h"
#include "app/ToolRow.h"
#include "app/Transport.h"
#include "app/TransportBar.h"
#include "app/WindowAction.h"
#include "app/ZoomControls.h"
#include "display/TraceArea.h"
#include "display/TracePointer.h"
#include "options/Parameters.h"
#include "options/dialog/OptionsMenu.h"
#include "options/dialog/ParmViewController.h"
#include "scale/Scale.h"
#include "streams/MusicStream.h"
#include "streams/ParallelAnalysis.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QAction>
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
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

namespace quorval {

MainViewController::MainViewController(MainView *view, OptionsMenu &options)
    : QObject(view), mainView(view), traceArea(new TraceArea(view)),
      displayView(traceArea->displayView), optionsMenu(options),
      transport(
          new Transport({.oneTouch = [] { return Parameters::shared().oneTouchPlayRecord.value(); },
                         .redraw = [] { DisplayView::requestRedraw(); },
                         .audioPlayer = {},
                         .playback = std::make_shared<PlaybackState>()},
                        this)),
      transportBar(new TransportBar(*transport, view)),
      prompt(new KeyPrompt(*displayView, view, this))
{
    tone = new ToneControl([this] { return music; }, transport->playback(),
                           [this](const QString &text) { prompt->show(text); }, this);
    QUORVAL_CHECK(mainView);
    displayView->setViewType(Parameters::shared().currentViewType());
    displayView->setPlayback(transport->playback());
    addKeyActions();
    buildLayout();
    QApplication::instance()->installEventFilter(this);

    connect(transport, &Transport::stateChanged, this, &MainViewController::refreshControls);
    connect(transport, &Transport::soundChanged, this, &MainViewController::soundChanged);
    connect(transport, &Transport::recordingStopped, this, [this] {
        if (music)
            music->soundGrew();
    });
    connect(transportBar, &TransportBar::needleJumped, this, &MainViewController::showNeedleAt);

    connect(displayView, &DisplayView::scrollOutChanged, this,
            &MainViewController::refreshControls);
    connect(displayView, &DisplayView::selectionChanged, this, [this](double start, double end) {
        transport->playhead().setSelection(start, end);
        emit selectionChanged(start, end);
    });
    connect(traceArea->pointer, &TracePointer::playStartChanged, &transport->playhead(),
            &Playhead::moveNeedle);
    refreshControls();
}

MainViewController::~MainViewController()
{
    // Nothing plays or records into the sound once its helpers are gone.
    disconnect(transport, nullptr, this, nullptr);
    transport->stop();
}

void MainViewController::buildLayout()
{
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

    // The key, tuning, options and zoom controls: beside the transport where the window is
    // wide enough, under it where not.
    auto *controls = new QWidget(mainView);
    auto *bar = new QHBoxLayout(controls);
    bar->setContentsMargins(0, 0, 0, 0);
    bar->addWidget(keyLabel);
    bar->addWidget(keyButton);
    bar->addSpacing(8);
    bar->addWidget(aFreqLabel);
    bar->addWidget(tuningCheckbox);
    bar->addWidget(optionsButton);
    bar->addSpacing(12);
    bar->addWidget(zoom);
    toolRow = new ToolRow(transportBar, controls, mainView);

    auto *layout = new QVBoxLayout(mainView);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addWidget(toolRow);
    layout->addWidget(traceArea, 1);

    connect(transportBar->toneButton, &QToolButton::toggled, tone,
            [this](bool on) { on ? tone->start() : tone->stop(); });
    connect(tuningCheckbox, &QCheckBox::clicked, this, &MainViewController::tuningBoxChecked);
    connect(keyButton, &QPushButton::clicked, keyAction, &QAction::trigger);
    connect(optionsButton, &QPushButton::clicked, optionsAction, &QAction::trigger);
}

std::shared_ptr<WavStream> MainViewController::wavStream() const
{
    return music ? music->wavStream : nullptr;
}

void MainViewController::setMusicStream(std::shared_ptr<MusicStream> stream)
{
    stopTransport();
    prompt->clear();
    // The old sound's helpers end before it goes; the new one is analysed on every core.
    parallel.reset();
    music = std::move(stream);
    Quorval::setMusicStream(music);
    displayView->setSound(music);
    if (music)
        parallel = std::make_unique<ParallelAnalysis>(music, ParallelAnalysis::defaultJobs());
    transport->setSound(wavStream());
    displayView->dataChanged();
    refreshControls();
}

bool MainViewController::selectAll()
{
    const Playhead::Extent e = transport->playhead().extent();
    return select(e.lowest, e.highest);
}

bool MainViewController::select(double start, double end)
{
    const Playhead::Extent e = transport->playhead().extent();
    if (!music || e.frames == 0 || transport->isPlaying() || transport->isRecording())
        return false;
    start = std::clamp(start, e.lowest, e.highest);
    end = std::clamp(end, start, e.highest);
    music->timeView->selectionStart = start;
    music->timeView->selectionEnd = end;
    transport->playhead().setSelection(start, end);
    transport->playhead().moveNeedle(start);
    DisplayView::requestRedraw();
    emit selectionChanged(start, end);
    return true;
}

void MainViewController::showNeedleAt(double seconds)
{
    // At the end this leaves most of the view before it, with room for a recording to grow.
    if (displayView->hView->functionOfTime)
        displayView->hView->setLeftTime(seconds, displayView->refreshExtent(), true);
    refreshControls();
}

void MainViewController::stopTransport()
{
    transport->stop();
}

void MainViewController::tuningBoxChecked()
{
    (void)Parameters::shared().tuning.setValue(tuningCheckbox->isChecked());
    refreshControls();
}

void MainViewController::optionsButtonPushed()
{
    optionsMenu.optionsMenuItemSelected();
    refreshControls();
}

void MainViewController::keyButtonPushed()
{
    if (!optionsMenu.dialog().isVisible())
        optionsMenu.openOptionsAt(QStringLiteral("Key"));
    refreshControls();
}

QAction *MainViewController::addAction(const QString &text, const QList<QKeySequence> &keys,
                                       const std::function<void()> &command)
{
    return addWindowAction(mainView, text, keys, this, command);
}

void MainViewController::addKeyActions()
{
    // A transport button's key acts as its click does, and only when it could be clicked.
    const auto clickOf = [](QAbstractButton *button) {
        return [button] {
            if (button->isEnabled())
                button->click();
        };
    };
    addAction(tr("Pause"), {Qt::Key_Space}, clickOf(transportBar->pauseButton));
    addAction(tr("Play"), {Qt::Key_P}, [this] { transport->togglePlay(Transport::Via::command); });
    addAction(tr("Record"), {Qt::Key_R},
              [this] { transport->toggleRecord(Transport::Via::command); });
    addAction(tr("Loop"), {Qt::Key_L}, clickOf(transportBar->loopButton));
    addAction(tr("To the Start"), {Qt::Key_B}, clickOf(transportBar->rewindButton));
    addAction(tr("To the End"), {Qt::Key_D}, clickOf(transportBar->fastForwardButton));
    addAction(tr("Slower"), {Qt::Key_BracketLeft}, [this] { transportBar->stepSpeed(+1); });
    addAction(tr("Faster"), {Qt::Key_BracketRight}, [this] { transportBar->stepSpeed(-1); });
    // Held: sounds until the key is let go (see eventFilter).
    addAction(tr("Reference Tone"), {Qt::Key_T}, [this] { tone->start(); })->setAutoRepeat(false);
    addAction(tr("Tuning"), {Qt::Key_U}, [this] { tuningCheckbox->click(); });
    keyAction = addAction(tr("Key..."), {Qt::Key_K}, [this] { keyButtonPushed(); });
    optionsAction = addAction(tr("Options..."), {Qt::Key_O}, [this] { optionsButtonPushed(); });
    zoom = new ZoomControls(*displayView, mainView, mainView);
    connect(zoom, &ZoomControls::zoomed, this, &MainViewController::refreshControls);
}

bool MainViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyRelease) {
        const auto &key = static_cast<const QKeyEvent &>(*event);
        auto *widget = qobject_cast<QWidget *>(watched);
        // The button keeps the tone on after the key is let go.
        if (key.key() == Qt::Key_T && !key.isAutoRepeat() && widget &&
            widget->window() == mainView->window() && !transportBar->toneButton->isChecked())
            tone->stop();
    }
    return QObject::eventFilter(watched, event);
}

void MainViewController::optionsChanged()
{
    displayView->setViewType(Parameters::shared().currentViewType());
    displayView->dataChanged();
    refreshControls();
}

void MainViewController::refreshControls()
{
    Parameters &parameters = Parameters::shared();
    const bool hasSound = music != nullptr;
    transportBar->refresh();

    QString key = QStringLiteral("%1 %2").arg(parameters.key.value(),
                                              parameters.minor.value() ? tr("Minor") : tr("Major"));
    // A tuning file that cannot be read was said once; the grid's fallback stays in sight.
    QString tuningError;
    if (Scale::tuningUnreadable(parameters, tuningError))
        key += tr(" (equal: tuning file unreadable)");
    keyLabel->setText(key);
    keyLabel->setToolTip(tuningError);
    aFreqLabel->setText(QString::asprintf("A = %.1f", parameters.aFrequency.value()));
    tuningCheckbox->setChecked(parameters.tuning.value());

    zoom->refresh(hasSound);

    QString title = QStringLiteral("Quorval");
    if (const std::shared_ptr<WavStream> wav = wavStream()) {
        title += QStringLiteral(" - ") + QString::fromStdString(wav->fileTitle);
        if (wav->modified)
            title += QStringLiteral(" *");
    }
    mainView->window()->setWindowTitle(title);
    displayView->redrawAll();
}

} // namespace quorval

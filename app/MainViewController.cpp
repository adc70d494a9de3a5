#include "app/MainViewController.h"

#include "analysis/Check.h"
#include "app/AppDelegate.h"
#include "app/AskViewController.h"
#include "app/MainView.h"
#include "app/Transport.h"
#include "app/TransportBar.h"
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
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <utility>

namespace quorval {

namespace {

const QString kFilePrompt = QStringLiteral("File... New, Open, Save, saveAs");
const QString kViewPrompt =
    QStringLiteral("View... ") + viewTypeChoices().join(QStringLiteral(", "));

} // namespace

MainViewController::MainViewController(MainView *view, AppDelegate *delegate)
    : QObject(view), mainView(view), scrollView(new TraceArea(view)),
      displayView(scrollView->displayView), columnHeaderView(scrollView->columnHeaderView),
      rowHeaderView(scrollView->rowHeaderView), appDelegate(delegate),
      transport(
          new Transport({.oneTouch = [] { return Parameters::shared().oneTouchPlayRecord.value(); },
                         .redraw = [] { DisplayView::requestRedraw(); },
                         .audioPlayer = {}},
                        this)),
      transportBar(new TransportBar(*transport, view)), promptTimer(new QTimer(this))
{
    QUORVAL_CHECK(mainView && appDelegate);
    mainView->controller = this;
    displayView->setViewType(Parameters::shared().currentViewType());
    buildLayout();
    addKeyActions();

    promptTimer->setSingleShot(true);
    promptTimer->setInterval(1000);
    connect(promptTimer, &QTimer::timeout, this, &MainViewController::clearPrompt);
    connect(transport, &Transport::stateChanged, this, &MainViewController::refreshControls);
    connect(transport, &Transport::soundChanged, this, &MainViewController::soundChanged);
    connect(transport, &Transport::recordingStopped, this, [this] {
        if (music)
            music->soundGrew();
    });
    connect(transportBar, &TransportBar::needleJumped, this, &MainViewController::showNeedleAt);

    connect(displayView, &DisplayView::scrollOutChanged, this,
            &MainViewController::refreshControls);
    connect(displayView, &DisplayView::selectionChanged, this,
            [this](double start, double end) { transport->setSelection(start, end); });
    connect(displayView, &DisplayView::playStartChanged, transport, &Transport::moveNeedle);
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
    hZoomInButton =
        makeToolButton(mainView, {}, QStringLiteral("+"), tr("Zoom in in time (+)"), false);
    hZoomOutButton =
        makeToolButton(mainView, {}, QStringLiteral("\u2212"), tr("Zoom out in time (-)"), false);
    hToggleButton = makeToolButton(mainView, {}, QStringLiteral("\u2194"), {}, true);
    vZoomInButton =
        makeToolButton(mainView, {}, QStringLiteral("+"), tr("Zoom in in height (Page Up)"), false);
    vZoomOutButton = makeToolButton(mainView, {}, QStringLiteral("\u2212"),
                                    tr("Zoom out in height (Page Down)"), false);
    vToggleButton = makeToolButton(mainView, {}, QStringLiteral("\u2195"), {}, true);

    auto *bar = new QHBoxLayout;
    bar->addWidget(transportBar);
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

    connect(transportBar->toneButton, &QToolButton::toggled, this,
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
    displayView->setSound(music);
    if (music)
        parallel = std::make_unique<ParallelAnalysis>(music, ParallelAnalysis::defaultJobs());
    transport->setSound(wavStream());
    displayView->dataChanged();
    refreshControls();
}

bool MainViewController::selectAll()
{
    const Transport::Extent e = transport->extent();
    if (!music || e.frames == 0 || transport->isPlaying() || transport->isRecording())
        return false;
    music->timeView->selectionStart = e.lowest;
    music->timeView->selectionEnd = e.highest;
    transport->setSelection(e.lowest, e.highest);
    transport->moveNeedle(e.lowest);
    DisplayView::requestRedraw();
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

void MainViewController::addKeyActions()
{
    // Window-wide, so that a key works whatever in the window has the focus (the menu bar too,
    // after a menu was closed with Escape). What a key does is decided in keyAction, which also
    // sees keys that reach the view without a shortcut.
    const std::pair<Qt::Key, char> keys[] = {{Qt::Key_Space, ' '},
                                             {Qt::Key_P, 'p'},
                                             {Qt::Key_R, 'r'},
                                             {Qt::Key_B, 'b'},
                                             {Qt::Key_D, 'd'},
                                             {Qt::Key_Plus, '+'},
                                             {Qt::Key_Equal, '='},
                                             {Qt::Key_Minus, '-'},
                                             {Qt::Key_U, 'u'},
                                             {Qt::Key_K, 'k'},
                                             {Qt::Key_O, 'o'},
                                             {Qt::Key_BracketLeft, '['},
                                             {Qt::Key_BracketRight, ']'},
                                             {Qt::Key_F, 'f'},
                                             {Qt::Key_V, 'v'},
                                             {Qt::Key_N, 'n'},
                                             {Qt::Key_S, 's'},
                                             {Qt::Key_A, 'a'},
                                             {Qt::Key_C, 'c'},
                                             {Qt::Key_Q, 'q'}};
    for (const auto &[key, c] : keys) {
        auto *action = new QAction(mainView);
        action->setShortcut(QKeySequence(key));
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, this, [this, c = c] { keyCommand(QLatin1Char(c)); });
        mainView->addAction(action);
    }
    const std::pair<Qt::Key, QToolButton *> pageKeys[] = {{Qt::Key_PageUp, vZoomInButton},
                                                          {Qt::Key_PageDown, vZoomOutButton}};
    for (const auto &[key, button] : pageKeys) {
        auto *action = new QAction(mainView);
        action->setShortcut(QKeySequence(key));
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, button, [b = button] {
            if (b->isEnabled())
                b->click();
        });
        mainView->addAction(action);
    }
}

void MainViewController::keyCommand(QChar c)
{
    clearPrompt();
    const QString prefix = std::exchange(prepKey, QString());
    (void)keyAction(prefix, c);
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
    if (!transportBar->toneButton->isChecked())
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

double MainViewController::playingSpeed() const
{
    return transport->speed();
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
        if (const std::optional<ViewType> type = viewTypeOfLetter(c)) {
            appDelegate->setViewType(static_cast<int>(*type));
            return true;
        }
    }
    switch (c.toLatin1()) {
    case ' ':
        return click(transportBar->pauseButton);
    case 'p':
        transport->togglePlay(Transport::Via::command);
        return true;
    case 'r':
        transport->toggleRecord(Transport::Via::command);
        return true;
    case 'b':
        return click(transportBar->rewindButton);
    case 'd':
        return click(transportBar->fastForwardButton);
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
        transportBar->stepSpeed(+1);
        return true;
    case ']':
        transportBar->stepSpeed(-1);
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
    const bool hasSound = music != nullptr;
    transportBar->refresh();

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

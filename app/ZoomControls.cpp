#include "app/ZoomControls.h"

#include "app/TransportBar.h"
#include "app/WindowAction.h"
#include "display/DisplayView.h"
#include "options/Parameters.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace quorval {

ZoomControls::ZoomControls(DisplayView &view, QWidget *keysOwner, QWidget *parent)
    : QWidget(parent), display(view)
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(new QLabel(tr("Time"), this));
    hZoomInButton = addZoom(keysOwner, QStringLiteral("+"), {Qt::Key_Plus, Qt::Key_Equal},
                            tr("Zoom in in time (+)"), &ZoomControls::hZoomIn);
    hZoomOutButton = addZoom(keysOwner, QStringLiteral("\u2212"), {Qt::Key_Minus},
                             tr("Zoom out in time (-)"), &ZoomControls::hZoomOut);
    hToggleButton = addZoom(keysOwner, QStringLiteral("\u2194"), {}, {}, &ZoomControls::hToggle);
    row->addSpacing(8);
    row->addWidget(new QLabel(tr("Height"), this));
    vZoomInButton = addZoom(keysOwner, QStringLiteral("+"), {Qt::Key_PageUp},
                            tr("Zoom in in height (Page Up)"), &ZoomControls::vZoomIn);
    vZoomOutButton = addZoom(keysOwner, QStringLiteral("\u2212"), {Qt::Key_PageDown},
                             tr("Zoom out in height (Page Down)"), &ZoomControls::vZoomOut);
    vToggleButton = addZoom(keysOwner, QStringLiteral("\u2195"), {}, {}, &ZoomControls::vToggle);
    for (QToolButton *toggle : {hToggleButton, vToggleButton})
        toggle->defaultAction()->setCheckable(true);
}

QToolButton *ZoomControls::addZoom(QWidget *keysOwner, const QString &text,
                                   const QList<QKeySequence> &keys, const QString &toolTip,
                                   void (ZoomControls::*command)())
{
    QAction *action = addWindowAction(keysOwner, text, keys, this, [this, command] {
        (this->*command)();
        emit zoomed();
    });
    if (!toolTip.isEmpty())
        action->setToolTip(toolTip);
    QToolButton *button = makeToolButton(this, {}, {}, {}, false);
    button->setDefaultAction(action);
    layout()->addWidget(button);
    return button;
}

void ZoomControls::refresh(bool hasSound)
{
    const bool h = display.canHScrollOut();
    const bool v = display.canVScrollOut();
    for (QToolButton *b :
         {hZoomInButton, hToggleButton, vZoomInButton, vZoomOutButton, vToggleButton})
        b->defaultAction()->setEnabled(hasSound);
    hZoomOutButton->defaultAction()->setEnabled(hasSound && h);
    hToggleButton->defaultAction()->setChecked(h);
    hToggleButton->defaultAction()->setToolTip(h ? tr("Zoom out full") : tr("Restore zoom"));
    vToggleButton->defaultAction()->setChecked(v);
    vToggleButton->defaultAction()->setToolTip(v ? tr("Zoom out full") : tr("Restore zoom"));
}

void ZoomControls::hZoomIn()
{
    display.hZoom(Parameters::shared().zoomIncrement.value());
}

void ZoomControls::hZoomOut()
{
    if (display.canHScrollOut())
        display.hZoom(1.0 / Parameters::shared().zoomIncrement.value());
}

void ZoomControls::hToggle()
{
    display.hToggle();
}

void ZoomControls::vZoomIn()
{
    display.vZoom(Parameters::shared().zoomIncrement.value());
}

void ZoomControls::vZoomOut()
{
    display.vZoom(1.0 / Parameters::shared().zoomIncrement.value());
}

void ZoomControls::vToggle()
{
    display.vToggle();
}

} // namespace quorval

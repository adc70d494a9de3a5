#pragma once

#include <QWidget>

class QLabel;

namespace quorval {

class Parameter;

// Makes the control that edits parameter in the options dialog, from the parameter's kind: a
// line edit for numbers and text, a check box for on/off, a completing combo box for choices.
// The control is a child of parent; its adapter is attached to the parameter (setView), so the
// parameter's loadView and applyView reach it. The dialog detaches it before deleting the
// control. refusal, when given, says beside the control why a value it applied was refused
// (the control itself snaps back), until the control is next edited. Main thread only.
QWidget *makeParameterControl(Parameter &parameter, QWidget *parent, QLabel *refusal = nullptr);

} // namespace quorval

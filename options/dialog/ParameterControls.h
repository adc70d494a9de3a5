#pragma once

#include <QString>
#include <QWidget>

#include <functional>

class QLabel;

namespace quorval {

class Parameter;

// Makes the control that edits parameter in the options dialog, from the parameter's kind: a
// line edit for numbers and text, a check box for on/off, a completing combo box for choices.
// The control is a child of parent; its adapter is attached to the parameter (setView), so the
// parameter's loadView and applyView reach it. The dialog detaches it before deleting the
// control. refusal, when given, says beside the control why a value it applied was refused
// (the control itself snaps back), until the control is next edited. Main thread only.
// A path option (a StringParameter with a file filter) gets a "Choose..." button beside its
// field, which puts the file chosen in the field.
QWidget *makeParameterControl(Parameter &parameter, QWidget *parent, QLabel *refusal = nullptr);

// What the "Choose..." buttons ask: the file chosen for the option labelled label, starting from
// the path in its field; empty when cancelled. Tests replace it; empty: the file panel.
using FileChooser = std::function<QString(QWidget *parent, const QString &label,
                                          const QString &filter, const QString &current)>;
FileChooser setFileChooser(FileChooser chooser);

} // namespace quorval

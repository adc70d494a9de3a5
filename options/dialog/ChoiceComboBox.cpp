#include "options/dialog/ChoiceComboBox.h"

#include <QEvent>
#include <QLineEdit>

namespace quorval {

ChoiceComboBox::ChoiceComboBox(QWidget *parent)
    : QComboBox(parent), dataSource_(new CaseInsensitiveComboBoxDataSource({}, {}, this))
{
    setEditable(true);
    setModel(dataSource_);
    // Typed text is looked up, never added to the list; the data source completes, not Qt's
    // completer, whose completion keeps the typed letter case.
    setInsertPolicy(QComboBox::NoInsert);
    setCompleter(nullptr);
    lineEdit()->installEventFilter(this);
    connect(lineEdit(), &QLineEdit::textEdited, this, &ChoiceComboBox::textEdited);
}

int ChoiceComboBox::indexOfText() const
{
    return dataSource_->indexOfItem(currentText());
}

bool ChoiceComboBox::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == lineEdit() && event->type() == QEvent::KeyPress) {
        QString kept = lineEdit()->text();
        if (lineEdit()->hasSelectedText())
            kept.remove(lineEdit()->selectionStart(), lineEdit()->selectedText().size());
        keptBeforeEdit_ = kept;
    }
    return QComboBox::eventFilter(watched, event);
}

void ChoiceComboBox::textEdited(const QString &text)
{
    const bool typedAtEnd =
        text.size() > keptBeforeEdit_.size() && lineEdit()->cursorPosition() == text.size();
    keptBeforeEdit_ = text;
    if (!typedAtEnd)
        return;
    const QString completion = dataSource_->completedString(text);
    if (completion.isEmpty())
        return;
    lineEdit()->setText(completion);
    lineEdit()->setSelection(int(text.size()), int(qMax(completion.size() - text.size(), 0)));
}

} // namespace quorval

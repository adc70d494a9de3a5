#include "options/dialog/ParameterControls.h"

#include "options/BooleanParameter.h"
#include "options/ChoiceParameter.h"
#include "options/Parameters.h"
#include "options/StringParameter.h"
#include "options/dialog/ChoiceComboBox.h"
#include "scale/Scale.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>

#include <cmath>
#include <functional>
#include <memory>
#include <utility>

namespace quorval {

namespace {

FileChooser &fileChooser()
{
    static FileChooser chooser;
    return chooser;
}

QString chooseFile(QWidget *parent, const QString &label, const QString &filter,
                   const QString &current)
{
    if (fileChooser())
        return fileChooser()(parent, label, filter, current);
    return QFileDialog::getOpenFileName(parent, label, QFileInfo(current).path(), filter);
}

void sayRefused(QLabel *refusal, const Parameter &parameter)
{
    if (refusal)
        refusal->setText(QStringLiteral("Takes ") + parameter.allowedValues());
}

// What the text of a field stands for, shown beside it while no refusal stands ("G3" for a note
// number); empty for nothing.
using Describer = std::function<QString(const QString &text)>;

// Numbers and text: the parameter's own text conversion, so "%.4f" and its range checks apply.
class LineEditView : public ParameterView
{
public:
    LineEditView(Parameter &parameter, QLineEdit *field, QLabel *refusal, Describer describe)
        : parameter_(parameter), field_(field), refusal_(refusal), describe_(std::move(describe))
    {
    }

    void load() override
    {
        if (!field_)
            return;
        field_->setText(parameter_.valueText());
        if (!refused_)
            describe();
    }

    bool apply() override
    {
        if (!field_)
            return true;
        const bool accepted = parameter_.setFromText(field_->text());
        // Refused: the field snaps back and the label beside it says why. Accepted: it shows
        // the stored form.
        refused_ = !accepted;
        if (!accepted)
            sayRefused(refusal_, parameter_);
        load();
        return accepted;
    }

    // The user typed: a refusal no longer stands, and the label follows the text.
    void edited()
    {
        refused_ = false;
        if (refusal_)
            refusal_->clear();
        describe();
    }

private:
    void describe()
    {
        if (describe_ && refusal_ && field_)
            refusal_->setText(describe_(field_->text()));
    }

    Parameter &parameter_;
    QPointer<QLineEdit> field_;
    QPointer<QLabel> refusal_;
    Describer describe_;
    bool refused_ = false;
};

// The note a note number names in the scale in force (its transposition too), e.g. "G3".
QString noteNameOf(const QString &text)
{
    bool ok = false;
    const double note = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(note) || std::abs(note) > 1000.0)
        return {};
    return Scale::current().noteNameWithOctave(std::llround(note));
}

class CheckBoxView : public ParameterView
{
public:
    CheckBoxView(Parameter &parameter, QCheckBox *box) : parameter_(parameter), box_(box) {}

    void load() override
    {
        if (!box_)
            return;
        const bool on = parameter_.valueText() == BooleanParameter::text(true);
        box_->setChecked(on);
        // "Minor" brings the key's spelling back in step with what is stored, also after a
        // cancelled toggle.
        if (auto *minor = dynamic_cast<Parameters::MinorParameter *>(&parameter_))
            minor->minorButtonPushed(on);
    }

    bool apply() override
    {
        return !box_ || parameter_.setFromText(BooleanParameter::text(box_->isChecked()));
    }

private:
    Parameter &parameter_;
    QPointer<QCheckBox> box_;
};

class ComboBoxView : public ParameterView
{
public:
    ComboBoxView(ChoiceParameter &parameter, ChoiceComboBox *box, QLabel *refusal)
        : parameter_(parameter), box_(box), refusal_(refusal)
    {
        takeChoices();
    }

    void load() override
    {
        if (!box_)
            return;
        const int i = parameter_.index();
        box_->setCurrentIndex(i < box_->count() ? i : -1);
        // By name, also a stored entry the list does not offer (a temperament kept outside
        // developer mode).
        box_->setEditText(parameter_.value());
        loadedText_ = box_->currentText();
    }

    bool apply() override
    {
        if (!box_)
            return true;
        // Untouched, it is not applied again: a stored entry outside the offered list stays and
        // does not keep OK from closing the dialog.
        if (box_->currentText() == loadedText_)
            return true;
        const int i = box_->indexOfText();
        const bool accepted = i >= 0 && parameter_.setIndex(i);
        if (!accepted)
            sayRefused(refusal_, parameter_);
        load();
        return accepted;
    }

    void choicesChanged() override
    {
        if (!box_)
            return;
        // Found again by name: an entry may stand elsewhere in the new lists.
        const QString typed = box_->currentText();
        takeChoices();
        const int selected = box_->dataSource().indexOfItem(typed);
        if (selected >= 0 && selected < box_->count())
            box_->setCurrentIndex(selected);
        else
            box_->setEditText(typed);
    }

private:
    void takeChoices()
    {
        box_->dataSource().setChoices(parameter_.choices(),
                                      parameter_.altChoices().value_or(QStringList()));
    }

    ChoiceParameter &parameter_;
    QPointer<ChoiceComboBox> box_;
    QPointer<QLabel> refusal_;
    QString loadedText_;
};

} // namespace

QWidget *makeParameterControl(Parameter &parameter, QWidget *parent, QLabel *refusal)
{
    // The reason stands until the user edits the control again.
    auto clearRefusal = [refusal = QPointer<QLabel>(refusal)] {
        if (refusal)
            refusal->clear();
    };
    switch (parameter.kind()) {
    case Parameter::Kind::Boolean: {
        auto *box = new QCheckBox(parent);
        if (auto *minor = dynamic_cast<Parameters::MinorParameter *>(&parameter))
            QObject::connect(box, &QCheckBox::toggled, box,
                             [minor](bool checked) { minor->minorButtonPushed(checked); });
        parameter.setView(std::make_unique<CheckBoxView>(parameter, box));
        return box;
    }
    case Parameter::Kind::Choice:
        if (auto *choice = dynamic_cast<ChoiceParameter *>(&parameter)) {
            auto *box = new ChoiceComboBox(parent);
            QObject::connect(box, &QComboBox::editTextChanged, box, clearRefusal);
            parameter.setView(std::make_unique<ComboBoxView>(*choice, box, refusal));
            return box;
        }
        break;
    case Parameter::Kind::Double:
    case Parameter::Kind::Int:
    case Parameter::Kind::String:
        break;
    }
    auto *field = new QLineEdit(parent);
    const bool isNote = dynamic_cast<Parameters::NoteLimitParameter *>(&parameter) != nullptr;
    auto view = std::make_unique<LineEditView>(parameter, field, refusal,
                                               isNote ? Describer(noteNameOf) : Describer());
    // The view may have been detached already, as the dialog goes.
    QObject::connect(field, &QLineEdit::textEdited, field, [&parameter, v = view.get()] {
        if (parameter.view() == v)
            v->edited();
    });
    parameter.setView(std::move(view));
    const auto *text = dynamic_cast<const StringParameter *>(&parameter);
    if (!text || text->fileFilter.isEmpty())
        return field;
    // The field and its button, as one control.
    auto *control = new QWidget(parent);
    field->setParent(control);
    auto *row = new QHBoxLayout(control);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(field, 1);
    auto *choose = new QPushButton(QObject::tr("Choose..."), control);
    choose->setObjectName(QStringLiteral("choose"));
    row->addWidget(choose);
    // The row's place in the tab order and its focus are the field's.
    control->setFocusProxy(field);
    QObject::connect(choose, &QPushButton::clicked, field, [&parameter, field, text] {
        const QString path =
            chooseFile(field->window(), parameter.name, text->fileFilter, field->text());
        if (path.isEmpty())
            return;
        field->setText(path);
        // As if typed: a refusal shown no longer stands.
        emit field->textEdited(path);
    });
    return control;
}

FileChooser setFileChooser(FileChooser chooser)
{
    return std::exchange(fileChooser(), std::move(chooser));
}

} // namespace quorval

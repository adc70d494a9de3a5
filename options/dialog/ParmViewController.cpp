#include "options/dialog/ParmViewController.h"

#include "options/DeveloperMode.h"
#include "options/Messages.h"
#include "options/dialog/ParameterControls.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include <utility>

namespace quorval {

namespace {

// Row geometry in pixels: labels from x = 20 in a column at least 175 wide (as wide as the
// widest label, on every page), controls 10 to the right of it and 160 wider than they need,
// rows 24 high and 28 apart, 18 of margin per page.
constexpr int kLabelX = 20;
constexpr int kLabelWidth = 175;
constexpr int kControlGap = 10;
constexpr int kControlExtraWidth = 160;
constexpr int kRowHeight = 24;
constexpr int kRowSpacing = 4;
constexpr int kPageMargin = 11;

// "ScaleTab" is shown as "Scale".
QString tabLabel(const QString &identifier)
{
    QString label = identifier;
    if (label.endsWith(QLatin1String("Tab")))
        label.chop(3);
    return label;
}

void focusControl(QWidget *control)
{
    control->setFocus(Qt::OtherFocusReason);
    // A number is replaced by typing, as a musician expects of a field the dialog opened at.
    if (auto *field = qobject_cast<QLineEdit *>(control))
        field->selectAll();
}

} // namespace

ParmViewController::ParmViewController(std::vector<Parameters::Page> pages, const QString &title,
                                       bool modal, QStringList helpTopics, OpenHelp openHelp,
                                       QWidget *parent)
    : QDialog(parent), parmLists_(std::move(pages)), helpTopics_(std::move(helpTopics)),
      openHelp_(std::move(openHelp)), tabView_(new QTabWidget(this)),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Apply |
                                        QDialogButtonBox::Cancel | QDialogButtonBox::Help,
                                    this)),
      okButton_(buttons_->button(QDialogButtonBox::Ok)),
      applyButton_(buttons_->button(QDialogButtonBox::Apply)),
      cancelButton_(buttons_->button(QDialogButtonBox::Cancel)),
      helpButton_(buttons_->button(QDialogButtonBox::Help))
{
    setWindowTitle(title);
    setModal(modal);
    helpButton_->setVisible(!helpTopics_.isEmpty());
    okButton_->setDefault(true);
    connect(okButton_, &QPushButton::clicked, this, &ParmViewController::okButtonPushed);
    connect(applyButton_, &QPushButton::clicked, this, &ParmViewController::applyButtonPushed);
    connect(cancelButton_, &QPushButton::clicked, this, &ParmViewController::cancelButtonPushed);
    connect(helpButton_, &QPushButton::clicked, this, &ParmViewController::helpButtonPushed);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(tabView_);
    layout->addWidget(buttons_);
    buildPages();
}

ParmViewController::~ParmViewController()
{
    removePages();
}

void ParmViewController::buildPages()
{
    if (built_ && builtForDeveloperMode_ == developerMode())
        return;
    const int shown = tabView_->currentIndex();
    removePages();
    builtForDeveloperMode_ = developerMode();
    built_ = true;
    rows_.resize(parmLists_.size());
    int labelWidth = kLabelWidth;
    for (std::size_t i = 0; i < parmLists_.size(); ++i) {
        QWidget *page = buildPage(parmLists_[i], rows_[i]);
        for (const QLabel *label : page->findChildren<QLabel *>())
            labelWidth = qMax(labelWidth, label->sizeHint().width());
        tabView_->addTab(page, tabLabel(parmLists_[i].tabIdentifier));
    }
    // One label column on every page, so the controls do not move between tabs.
    for (int i = 0; i < tabView_->count(); ++i) {
        if (auto *grid = qobject_cast<QGridLayout *>(tabView_->widget(i)->layout()))
            grid->setColumnMinimumWidth(0, labelWidth);
    }
    tabView_->setCurrentIndex(qMax(shown, 0));

    // The keyboard walks the rows in order, then the buttons.
    QWidget *previous = tabView_->tabBar();
    for (const std::vector<Row> &rows : rows_) {
        for (const Row &row : rows) {
            // A row of its own several controls (a path and its Choose... button) in order.
            QList<QWidget *> stops{row.control};
            if (row.control->focusProxy()) {
                stops.clear();
                for (QWidget *w : row.control->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
                    if (w->focusPolicy() & Qt::TabFocus)
                        stops.append(w);
            }
            for (QWidget *stop : stops) {
                setTabOrder(previous, stop);
                previous = stop;
            }
        }
    }
    setTabOrder(previous, buttons_);
}

void ParmViewController::removePages()
{
    // The options outlive the controls: detach each before its page goes.
    for (const std::vector<Row> &rows : rows_) {
        for (const Row &row : rows)
            row.parameter->setView(nullptr);
    }
    rows_.clear();
    while (tabView_->count() > 0) {
        QWidget *page = tabView_->widget(0);
        tabView_->removeTab(0);
        delete page;
    }
}

QWidget *ParmViewController::buildPage(const Parameters::Page &page, std::vector<Row> &rows)
{
    auto *view = new QWidget;
    view->setObjectName(page.tabIdentifier);
    auto *grid = new QGridLayout(view);
    grid->setContentsMargins(kLabelX, kPageMargin, kLabelX, kPageMargin);
    grid->setHorizontalSpacing(kControlGap);
    grid->setVerticalSpacing(kRowSpacing);
    // Width to spare goes to the controls; the labels keep one column on every page.
    grid->setColumnStretch(1, 1);
    for (Parameter *parameter : page.parameters) {
        if (parameter->debug && !developerMode())
            continue;
        const int r = int(rows.size());
        auto *label = new QLabel(parameter->name, view);
        label->setAlignment(Qt::AlignCenter);
        // Why a value was refused, small, beside the control it concerns.
        auto *refusal = new QLabel(view);
        refusal->setTextFormat(Qt::PlainText);
        QFont small = refusal->font();
        small.setPointSizeF(small.pointSizeF() * 0.85);
        refusal->setFont(small);
        QWidget *control = makeParameterControl(*parameter, view, refusal);
        control->setObjectName(parameter->name);
        control->setMinimumWidth(control->sizeHint().width() + kControlExtraWidth);
        label->setBuddy(control);
        grid->setRowMinimumHeight(r, kRowHeight);
        grid->addWidget(label, r, 0);
        grid->addWidget(control, r, 1);
        grid->addWidget(refusal, r, 2);
        rows.push_back({parameter, control, refusal});
    }
    // Short pages keep their rows at the top.
    grid->setRowStretch(int(rows.size()), 1);
    return view;
}

void ParmViewController::prepareToOpen()
{
    // The temperament list depends on developer mode; it may have changed since the last time.
    for (const Parameters::Page &page : parmLists_) {
        for (Parameter *parameter : page.parameters) {
            if (auto *temperament = dynamic_cast<Parameters::TemperamentParameter *>(parameter))
                temperament->updateChoices(developerMode());
        }
    }
    buildPages();
    for (const std::vector<Row> &rows : rows_) {
        for (const Row &row : rows)
            row.refusal->clear();
    }
    // After the refusals went: a field may say what its number stands for.
    loadView();
}

void ParmViewController::showAt(int page, QWidget *focus)
{
    if (page >= 0 && page < tabView_->count())
        tabView_->setCurrentIndex(page);
    show();
    raise();
    activateWindow();
    if (!focus && page >= 0 && std::size_t(page) < rows_.size() && !rows_[page].empty())
        focus = rows_[page].front().control;
    if (focus)
        focusControl(focus);
}

void ParmViewController::openAtPage(int page)
{
    prepareToOpen();
    showAt(page, nullptr);
}

void ParmViewController::openAtOption(const QString &label)
{
    prepareToOpen();
    for (std::size_t i = 0; i < parmLists_.size(); ++i) {
        for (const Parameter *parameter : parmLists_[i].parameters) {
            if (parameter->name == label) {
                showAt(int(i), control(label));
                return;
            }
        }
    }
    showAt(0, nullptr);
}

void ParmViewController::loadView()
{
    for (const std::vector<Row> &rows : rows_) {
        for (const Row &row : rows)
            row.parameter->loadView();
    }
}

bool ParmViewController::applyView()
{
    applyOK_ = true;
    for (const std::vector<Row> &rows : rows_) {
        for (const Row &row : rows)
            applyOK_ = row.parameter->applyView() && applyOK_;
    }
    emit applied();
    return applyOK_;
}

const ParmViewController::Row *ParmViewController::row(const QString &label) const
{
    for (const std::vector<Row> &rows : rows_) {
        for (const Row &row : rows) {
            if (row.parameter->name == label)
                return &row;
        }
    }
    return nullptr;
}

QWidget *ParmViewController::control(const QString &label) const
{
    const Row *found = row(label);
    return found ? found->control : nullptr;
}

QLabel *ParmViewController::refusal(const QString &label) const
{
    const Row *found = row(label);
    return found ? found->refusal : nullptr;
}

void ParmViewController::okButtonPushed()
{
    if (applyView())
        accept();
}

void ParmViewController::applyButtonPushed()
{
    applyView();
}

void ParmViewController::cancelButtonPushed()
{
    reject();
}

void ParmViewController::helpButtonPushed()
{
    const QString topic = helpTopics_.value(tabView_->currentIndex());
    if (topic.isEmpty() || !openHelp_ || !openHelp_(topic))
        showMessage(QStringLiteral("Help"), QStringLiteral("Help not available"));
}

void ParmViewController::reject()
{
    loadView();
    QDialog::reject();
}

} // namespace quorval

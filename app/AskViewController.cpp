#include "app/AskViewController.h"

#include "options/Messages.h"
#include "streams/Quorval.h"

#include <QFont>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

namespace quorval {

namespace {

AskViewController::Responder &responder()
{
    static AskViewController::Responder answerer;
    return answerer;
}

std::function<bool(const QString &)> &helpOpener()
{
    static std::function<bool(const QString &)> opener;
    return opener;
}

QPushButton *makeButton(const QString &title, QWidget *parent)
{
    auto *button = new QPushButton(title, parent);
    button->setMinimumSize(AskViewController::buttonWidth, AskViewController::buttonHeight);
    button->setAutoDefault(false);
    return button;
}

} // namespace

AskViewController::AskViewController(const QString &title, const QString &text, Buttons buttons,
                                     QWidget *parent)
    : QDialog(parent), textField(new QLabel(text, this)), detailField(new QLabel(this)),
      scrollView(new QPlainTextEdit(this)),
      yesButton(makeButton(buttons.no ? tr("Yes") : tr("OK"), this)),
      noButton(makeButton(tr("No"), this)), cancelButton(makeButton(tr("Cancel"), this)),
      helpButton(makeButton(tr("Help"), this)), messageText(text)
{
    setWindowTitle(title);
    setModal(true);
    setMinimumWidth(frameWidth);

    const bool longText =
        text.size() > kScrollChars || text.count(QLatin1Char('\n')) >= kScrollLines;
    // Texts carry file names and words from servers: shown as they stand, never as markup.
    textField->setTextFormat(Qt::PlainText);
    textField->setWordWrap(true);
    textField->setTextInteractionFlags(Qt::TextSelectableByMouse);
    textField->setVisible(!longText);
    // Smaller, beneath: the file and the reason a message is about.
    detailField->setTextFormat(Qt::PlainText);
    detailField->setWordWrap(true);
    detailField->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont small = detailField->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    detailField->setFont(small);
    detailField->hide();
    scrollView->setPlainText(text);
    scrollView->setReadOnly(true);
    scrollView->setVisible(longText);
    scrollView->setMinimumHeight(longText ? 240 : 0);

    noButton->setVisible(buttons.no);
    cancelButton->setVisible(buttons.cancel);
    helpButton->setVisible(buttons.help);
    yesButton->setDefault(true);
    closeAnswer = buttons.cancel ? Answer::cancel : (buttons.no ? Answer::no : Answer::yes);

    auto *row = new QHBoxLayout;
    row->setSpacing(buttonSpacing);
    row->addWidget(helpButton);
    row->addStretch();
    row->addWidget(cancelButton);
    row->addWidget(noButton);
    row->addWidget(yesButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(textField);
    layout->addWidget(scrollView);
    layout->addWidget(detailField);
    layout->addLayout(row);

    connect(yesButton, &QPushButton::clicked, this, [this] {
        answer = Answer::yes;
        accept();
    });
    connect(noButton, &QPushButton::clicked, this, [this] {
        answer = Answer::no;
        accept();
    });
    connect(cancelButton, &QPushButton::clicked, this, [this] {
        answer = Answer::cancel;
        QDialog::reject();
    });
    connect(helpButton, &QPushButton::clicked, this, &AskViewController::helpButtonPushed);
}

void AskViewController::setDetail(const QString &detail)
{
    detailText = detail;
    detailField->setText(detail);
    detailField->setVisible(!detail.isEmpty());
}

bool AskViewController::scrolls() const
{
    return !scrollView->isHidden();
}

void AskViewController::reject()
{
    answer = closeAnswer;
    QDialog::reject();
}

void AskViewController::helpButtonPushed()
{
    const auto &opener = helpOpener();
    if (!opener || !opener(helpTopic))
        message(this, tr("Help"), QStringLiteral("Help not available"));
}

AskViewController::Answer AskViewController::ask(QWidget *parent, const QString &title,
                                                 const QString &text, Buttons buttons,
                                                 const QString &helpTopic,
                                                 const ButtonTitles &titles, const QString &detail)
{
    AskViewController dialog(title, text, buttons, parent);
    dialog.helpTopic = helpTopic;
    dialog.setDetail(detail);
    for (auto [button, buttonTitle] : {std::pair{dialog.yesButton, titles.yes},
                                       {dialog.noButton, titles.no},
                                       {dialog.cancelButton, titles.cancel}})
        if (!buttonTitle.isEmpty())
            button->setText(buttonTitle);
    if (responder())
        return responder()(dialog);
    dialog.exec();
    return dialog.answer;
}

void AskViewController::message(QWidget *parent, const QString &title, const QString &text,
                                const QString &detail)
{
    (void)ask(parent, title, text, Buttons{}, QString(), {}, detail);
}

AskViewController::Responder AskViewController::setResponder(Responder answerer)
{
    return std::exchange(responder(), std::move(answerer));
}

void AskViewController::setHelpOpener(std::function<bool(const QString &topic)> opener)
{
    helpOpener() = std::move(opener);
}

void AskViewController::installAsMessageHandler(QWidget *parent)
{
    QPointer<QWidget> owner(parent);
    setMessageHandler([owner](const QString &title, const QString &text, const QString &detail) {
        auto show = [owner, title, text, detail] { message(owner.data(), title, text, detail); };
        if (Quorval::isMainThread())
            show();
        else
            Quorval::postToMain(show);
    });
}

} // namespace quorval

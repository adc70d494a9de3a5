#pragma once

#include <QDialog>
#include <QString>

#include <functional>

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace quorval {

// The application's one message dialog: a title, a text (in a scrolling field when long), and
// up to four buttons: yes, no, cancel and help (which opens the help page helpTopic names).
// Every message and question of the window goes through it.
//
// Tests answer it without showing anything: a responder installed with setResponder is asked
// instead of the user. Main thread only; messages from other threads go through
// installAsMessageHandler, which hands them over to the main queue.
class AskViewController : public QDialog
{
    Q_OBJECT

public:
    enum class Answer
    {
        yes,
        no,
        cancel
    };

    // Which buttons show. A message has only yes, titled "OK".
    struct Buttons
    {
        bool no = false;
        bool cancel = false;
        bool help = false;
    };
    // Titles other than Yes (OK), No and Cancel, for a question that names its choices; an
    // empty one keeps the usual title.
    struct ButtonTitles
    {
        QString yes;
        QString no;
        QString cancel;
    };

    // Texts longer than this many characters, or with more than kScrollLines lines, scroll.
    static constexpr int kScrollChars = 600;
    static constexpr int kScrollLines = 12;

    AskViewController(const QString &title, const QString &text, Buttons buttons,
                      QWidget *parent = nullptr);

    // Shows a question and waits for the answer; closing the window answers cancel (no when
    // there is no cancel button). detail: what it concerns and why, beneath the text.
    static Answer ask(QWidget *parent, const QString &title, const QString &text, Buttons buttons,
                      const QString &helpTopic = QString(), const ButtonTitles &titles = {},
                      const QString &detail = QString());
    // Shows a message with OK.
    static void message(QWidget *parent, const QString &title, const QString &text,
                        const QString &detail = QString());

    // A test's answerer: receives the dialog about to be shown (title, text, buttons set) and
    // answers for the user. Empty: the user answers. Returns the one it replaces.
    using Responder = std::function<Answer(const AskViewController &dialog)>;
    static Responder setResponder(Responder responder);

    // Opens a help topic; false when there is no page for it (the dialog then says "Help not
    // available"). Empty: never available.
    static void setHelpOpener(std::function<bool(const QString &topic)> opener);

    // Routes showMessage (used below the window) here; messages from other threads are posted
    // to the main queue. parent: the window the dialogs belong to.
    static void installAsMessageHandler(QWidget *parent);

    [[nodiscard]] QString text() const { return messageText; }
    [[nodiscard]] QString detail() const { return detailText; }
    // Sets the detail text beneath the text; empty hides it.
    void setDetail(const QString &detail);
    [[nodiscard]] bool scrolls() const;

    QLabel *textField;
    QLabel *detailField;
    QPlainTextEdit *scrollView;
    QPushButton *yesButton;
    QPushButton *noButton;
    QPushButton *cancelButton;
    QPushButton *helpButton;
    QString helpTopic;

    static constexpr int frameWidth = 420;
    static constexpr int buttonWidth = 90;
    static constexpr int buttonHeight = 30;
    static constexpr int buttonSpacing = 8;

protected:
    void reject() override;

private:
    void helpButtonPushed();

    QString messageText;
    QString detailText;
    Answer answer = Answer::cancel;
    Answer closeAnswer = Answer::cancel;
};

} // namespace quorval

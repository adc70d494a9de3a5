#include "help/HelpViewer.h"

#include "options/Messages.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <algorithm>

namespace quorval {

namespace {

const QString kPageFolder = QStringLiteral(":/help/");
const QString kPageSuffix = QStringLiteral(".html");

QString pagePath(const QString &topic)
{
    return kPageFolder + topic.section(QLatin1Char('#'), 0, 0) + kPageSuffix;
}

QUrl pageUrl(const QString &topic)
{
    QUrl url(QStringLiteral("qrc") + pagePath(topic));
    const QString anchor = topic.section(QLatin1Char('#'), 1);
    if (!anchor.isEmpty())
        url.setFragment(anchor);
    return url;
}

} // namespace

HelpViewer::HelpViewer(QWidget *parent)
    : QWidget(parent, Qt::Window), browser_(new QTextBrowser(this)),
      backButton_(new QPushButton(tr("Back"), this)),
      forwardButton_(new QPushButton(tr("Forward"), this)),
      contentsButton_(new QPushButton(tr("Contents"), this))
{
    setWindowTitle(tr("Quorval Help"));
    setObjectName(QStringLiteral("helpViewer"));
    resize(820, 680);

    // Web links leave for the browser; pages of our own stay here.
    browser_->setOpenLinks(true);
    browser_->setOpenExternalLinks(true);
    browser_->setSearchPaths({kPageFolder});

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(backButton_);
    buttons->addWidget(forwardButton_);
    buttons->addWidget(contentsButton_);
    buttons->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(buttons);
    layout->addWidget(browser_);

    backButton_->setEnabled(false);
    forwardButton_->setEnabled(false);
    connect(backButton_, &QPushButton::clicked, browser_, &QTextBrowser::backward);
    connect(forwardButton_, &QPushButton::clicked, browser_, &QTextBrowser::forward);
    connect(contentsButton_, &QPushButton::clicked, this,
            [this] { openHelp(QStringLiteral("Manual")); });
    connect(browser_, &QTextBrowser::backwardAvailable, backButton_, &QPushButton::setEnabled);
    connect(browser_, &QTextBrowser::forwardAvailable, forwardButton_, &QPushButton::setEnabled);
    connect(browser_, &QTextBrowser::sourceChanged, this,
            [this] { setWindowTitle(tr("Quorval Help - %1").arg(browser_->documentTitle())); });
}

bool HelpViewer::hasTopic(const QString &topic)
{
    // Bare names only: a topic is never a path into the rest of the resources.
    static const QRegularExpression name(QStringLiteral("^\\w+(#[\\w-]+)?$"));
    return name.match(topic).hasMatch() && QFile::exists(pagePath(topic));
}

QStringList HelpViewer::topics()
{
    QStringList names;
    for (const QString &file :
         QDir(kPageFolder).entryList({QLatin1Char('*') + kPageSuffix}, QDir::Files, QDir::Name))
        names.append(file.chopped(kPageSuffix.size()));
    return names;
}

void HelpViewer::placeOnScreen()
{
    placed_ = true;
    QWidget *over = parentWidget() ? parentWidget()->window() : nullptr;
    const QScreen *screen = over ? over->screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect room = screen->availableGeometry();
    // Room for the window manager's frame, which is not known before the window shows.
    const QSize frame(16, 48);
    QRect wanted(QPoint(0, 0), size().boundedTo(room.size() - frame));
    wanted.moveCenter(over ? over->frameGeometry().center() : room.center());
    wanted.moveLeft(std::clamp(wanted.left(), room.left(),
                               room.left() + room.width() - frame.width() - wanted.width()));
    wanted.moveTop(std::clamp(wanted.top(), room.top(),
                              room.top() + room.height() - frame.height() - wanted.height()));
    // move places the frame, resize the contents.
    resize(wanted.size());
    move(wanted.topLeft());
}

bool HelpViewer::openHelp(const QString &topic)
{
    if (!hasTopic(topic))
        return false;
    browser_->setSource(pageUrl(topic));
    if (!placed_)
        placeOnScreen();
    show();
    raise();
    activateWindow();
    return true;
}

void HelpViewer::showTopic(const QString &topic)
{
    if (!openHelp(topic))
        showMessage(QStringLiteral("Help"), QStringLiteral("Help not available"));
}

QString HelpViewer::currentTopic() const
{
    const QString path = browser_->source().path();
    if (path.isEmpty())
        return {};
    QString name = path.section(QLatin1Char('/'), -1);
    return name.endsWith(kPageSuffix) ? name.chopped(kPageSuffix.size()) : name;
}

} // namespace quorval

#include "SorviApp/views/WelcomeView.h"

#include "KestraneStyle/BrandHeader.h"
#include "SorviApp/model/SorviModel.h"

#include <QDragEnterEvent>
#include <QFileInfo>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

struct Tip {
    QString symbol;
    QString title;
    QString text;
};

QLabel *secondary(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setStyleSheet(QStringLiteral("QLabel { color: palette(dark); }"));
    return label;
}

QLabel *heading(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QString dropAreaStyle(bool targeted)
{
    return targeted ? QStringLiteral("QFrame#dropArea { border: 2px dashed palette(highlight); border-radius: 14px;"
                                     " background: palette(alternate-base); }")
                    : QStringLiteral("QFrame#dropArea { border: 2px dashed palette(mid); border-radius: 14px; }");
}

} // namespace

QString WelcomeView::droppedFolder(const QMimeData *data)
{
    if (!data || !data->hasUrls())
        return {};
    for (const QUrl &url : data->urls()) {
        const QFileInfo info(url.toLocalFile());
        if (url.isLocalFile() && info.exists())
            return info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    }
    return {};
}

WelcomeView::WelcomeView(SorviModel &model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setAcceptDrops(true);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 24);
    column->setSpacing(18);
    column->addWidget(new BrandHeader(QStringLiteral("Kestrane Sorvi"),
                                      QStringLiteral("Pick your best shots fast and hand them to your editor"), this));
    auto *body = new QVBoxLayout;
    body->setContentsMargins(32, 0, 32, 0);
    body->setSpacing(18);
    body->addWidget(makeDropArea());

    m_recentSection = new QWidget(this);
    auto *recent = new QVBoxLayout(m_recentSection);
    recent->setContentsMargins(0, 0, 0, 0);
    recent->addWidget(heading(QStringLiteral("Recent"), m_recentSection));
    m_recentList = new QVBoxLayout;
    m_recentList->setSpacing(2);
    recent->addLayout(m_recentList);
    body->addWidget(m_recentSection);
    body->addStretch(1);
    body->addWidget(makeTips());
    column->addLayout(body, 1);

    connect(&m_model, &SorviModel::recentFoldersChanged, this, &WelcomeView::refreshRecent);
    refreshRecent();
}

QWidget *WelcomeView::makeDropArea()
{
    m_dropArea = new QFrame(this);
    m_dropArea->setObjectName(QStringLiteral("dropArea"));
    m_dropArea->setStyleSheet(dropAreaStyle(false));
    m_dropArea->setMinimumHeight(220);
    auto *layout = new QVBoxLayout(m_dropArea);
    layout->setAlignment(Qt::AlignCenter);
    layout->setSpacing(10);
    auto *symbol = new QLabel(m_dropArea);
    symbol->setPixmap(style()->standardIcon(QStyle::SP_DirOpenIcon).pixmap(48, 48));
    symbol->setAlignment(Qt::AlignCenter);
    auto *title = heading(QStringLiteral("Drop a folder of photos"), m_dropArea);
    title->setAlignment(Qt::AlignCenter);
    auto *text = secondary(QStringLiteral("A shoot on your computer, a card, or an Ostrale folder. RAW, JPEG and HEIC,\n"
                                          "with RAW+JPEG pairs shown as one photo."),
                           m_dropArea);
    text->setWordWrap(false);
    text->setAlignment(Qt::AlignCenter);
    auto *open = new QPushButton(QStringLiteral("Open Folder…"), m_dropArea);
    open->setDefault(true);
    connect(open, &QPushButton::clicked, this, &WelcomeView::openFolderRequested);
    layout->addWidget(symbol);
    layout->addWidget(title);
    layout->addWidget(text);
    layout->addWidget(open, 0, Qt::AlignCenter);
    return m_dropArea;
}

QWidget *WelcomeView::makeTips()
{
    const QList<Tip> tips{
        {QStringLiteral("\u26A1"), QStringLiteral("Fast"),
         QStringLiteral("Shows the preview every camera stores in its RAW files, so the next photo is already there.")},
        {QStringLiteral("\u2328"), QStringLiteral("From the keyboard"),
         QStringLiteral("P picks, X rejects, 1–5 rates, 6–9 colour labels. Arrow keys move.")},
        {QStringLiteral("\u2713"), QStringLiteral("Originals untouched"),
         QStringLiteral("Ratings stay in Sorvi until you hand off to Lightroom or Capture One.")},
    };
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(24);
    for (const Tip &tip : tips) {
        auto *box = new QVBoxLayout;
        box->setSpacing(4);
        box->addWidget(heading(tip.symbol + QStringLiteral("  ") + tip.title, row));
        box->addWidget(secondary(tip.text, row));
        box->addStretch(1);
        layout->addLayout(box, 1);
    }
    return row;
}

void WelcomeView::refreshRecent()
{
    while (QLayoutItem *item = m_recentList->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const QList<RecentFolder> folders = m_model.recentFolders();
    m_recentSection->setVisible(!folders.isEmpty());
    for (const RecentFolder &folder : folders) {
        const QString name = QFileInfo(folder.path).fileName().isEmpty() ? folder.path : QFileInfo(folder.path).fileName();
        auto *button = new QToolButton(m_recentSection);
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setAutoRaise(true);
        button->setIcon(style()->standardIcon(folder.connected ? QStyle::SP_DirIcon : QStyle::SP_DriveFDIcon));
        button->setText(folder.connected ? name : name + QStringLiteral(" · Not connected"));
        button->setToolTip(folder.connected ? folder.path
                                            : QStringLiteral("Plug in the card or drive to open %1 again.").arg(name));
        button->setEnabled(folder.connected);
        const QString path = folder.path;
        connect(button, &QToolButton::clicked, this, [this, path] { emit folderChosen(path); });
        auto *row = new QWidget(m_recentSection);
        auto *rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(0, 0, 0, 0);
        button->setParent(row);
        rowLayout->addWidget(button);
        if (!folder.connected) {
            QLabel *hint = secondary(button->toolTip(), row);
            hint->setWordWrap(false);
            rowLayout->addWidget(hint);
        }
        rowLayout->addStretch(1);
        m_recentList->addWidget(row);
    }
}

void WelcomeView::setTargeted(bool targeted)
{
    if (targeted == m_targeted)
        return;
    m_targeted = targeted;
    m_dropArea->setStyleSheet(dropAreaStyle(targeted));
}

void WelcomeView::dragEnterEvent(QDragEnterEvent *event)
{
    if (droppedFolder(event->mimeData()).isEmpty())
        return;
    event->acceptProposedAction();
    setTargeted(true);
}

void WelcomeView::dragLeaveEvent(QDragLeaveEvent *)
{
    setTargeted(false);
}

void WelcomeView::dropEvent(QDropEvent *event)
{
    setTargeted(false);
    const QString folder = droppedFolder(event->mimeData());
    if (folder.isEmpty())
        return;
    event->acceptProposedAction();
    emit folderChosen(folder);
}

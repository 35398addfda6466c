#include "SorviApp/views/HandoffView.h"
#include "SorviApp/views/SheetParts.h"

#include "SorviApp/model/FolderAccess.h"
#include "SorviApp/model/SorviModel.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/core/Wording.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/LightroomPlugin.h"
#include "SorviKit/handoff/MoveLog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace {

// Which photos a copy takes, as stored under "HandoffCopyWhat", in the picker's order.
const QStringList copyWhatValues{QStringLiteral("picks"), QStringLiteral("rated"), QStringLiteral("all")};

QString folderName(const QString &folder)
{
    return folder.isEmpty() ? QStringLiteral("No folder chosen") : QFileInfo(QDir::cleanPath(folder)).fileName();
}

QLabel *explanation(QWidget *parent, const char *name)
{
    QLabel *label = SheetParts::secondaryText(QString(), parent, name);
    label->setContentsMargins(24, 0, 0, 0); // under the toggle's text, not its box
    return label;
}

// A section's own toggle, in bold.
QCheckBox *headline(QCheckBox *box)
{
    QFont font = box->font();
    font.setBold(true);
    box->setFont(font);
    return box;
}

// A row indented under a section's toggle, packed to the left.
QHBoxLayout *indented(const QList<QWidget *> &widgets)
{
    auto *row = new QHBoxLayout;
    row->setContentsMargins(24, 0, 0, 0);
    for (QWidget *widget : widgets)
        row->addWidget(widget);
    row->addStretch(1);
    return row;
}

// Whether the move record holds moves to put back; an unreadable one offers none.
bool movesRecorded(const MoveLog &log)
{
    try {
        return !log.load().isEmpty();
    } catch (const FileError &) {
        return false;
    }
}

// A folder's name with its chooser button, indented under a toggle.
QWidget *folderRow(QWidget *parent, QLabel *&name, const char *nameId, QPushButton *choose)
{
    auto *row = new QWidget(parent);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(24, 0, 0, 0);
    name = new QLabel(row);
    name->setObjectName(QLatin1String(nameId));
    layout->addWidget(name, 1);
    choose->setParent(row);
    layout->addWidget(choose);
    return row;
}

QWidget *section(QWidget *parent, const QList<QWidget *> &widgets)
{
    auto *box = new QWidget(parent);
    auto *column = new QVBoxLayout(box);
    column->setContentsMargins(0, 4, 0, 4);
    column->setSpacing(4);
    for (QWidget *widget : widgets)
        column->addWidget(widget);
    return box;
}

} // namespace

HandoffView::HandoffView(SorviModel &model, QWidget *parent) : QDialog(parent), m_model(model), m_folder(model.folder())
{
    setObjectName(QStringLiteral("handoff"));
    setWindowTitle(QStringLiteral("Hand Off"));
    setWindowModality(Qt::WindowModal);
    m_pool.setMaxThreadCount(1); // one run at a time, and the card's probe before it
    loadChoices();
    build();
    refresh();
    learnCardState();
    connect(&model, &SorviModel::ratingsChanged, this, &HandoffView::refresh);
    connect(&model, &SorviModel::shotsChanged, this, &HandoffView::refresh);
}

HandoffView::~HandoffView()
{
    if (m_cancelled)
        *m_cancelled = true;
    m_pool.waitForDone();
}

// Remembered choices.

void HandoffView::loadChoices()
{
    const auto value = [this](const char *key, const QVariant &fallback = {}) {
        return m_model.setting(QLatin1String(key), fallback);
    };
    m_choices.sidecars = value(sidecarsKey, true).toBool();
    m_choices.copy = value(copyKey, false).toBool();
    m_choices.copyWhat = value(copyWhatKey, QStringLiteral("picks")).toString();
    m_choices.removeLocation = value(removeLocationKey, false).toBool();
    m_choices.moveRejects = value(moveRejectsKey, false).toBool();
    m_choices.flagsList = value(flagsListKey, true).toBool();
    m_choices.manifest = value(manifestKey, false).toBool();
    m_choices.sidecarStyle = value(sidecarStyleKey).toString() == QLatin1String("darktable")
        ? HandoffPlan::SidecarStyle::darktable
        : HandoffPlan::SidecarStyle::lightroom;
    if (FolderAccess::isSandboxed()) {
        if (const auto resolved = FolderAccess::resolve(value(destinationBookmarkKey).toByteArray()))
            m_choices.destination = resolved->path;
    } else {
        m_choices.destination = value(destinationKey).toString();
    }
    m_choices.secondDestination = value(secondDestinationKey).toString();
}

void HandoffView::remember(const char *key, const QVariant &value)
{
    m_model.rememberSetting(QLatin1String(key), value);
}

void HandoffView::learnCardState()
{
    auto *watcher = new QFutureWatcher<CardState>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        const CardState state = watcher->result();
        m_readOnly = state.readOnly;
        // A destination that is gone (a drive not plugged in) is not offered again.
        if (!state.destinationExists)
            m_choices.destination.clear();
        if (!state.secondExists)
            m_choices.secondDestination.clear();
        m_ready = true;
        refresh();
        emit readyChanged();
    });
    watcher->setFuture(QtConcurrent::run(&m_pool, [folder = m_folder, destination = m_choices.destination,
                                                   second = m_choices.secondDestination] {
        const auto isFolder = [](const QString &path) { return !path.isEmpty() && QFileInfo(path).isDir(); };
        return CardState{!Handoff::canWrite(folder, true), isFolder(destination), isFolder(second)};
    }));
}

void HandoffView::setDestination(const QString &folder)
{
    m_choices.destination = folder;
    if (FolderAccess::isSandboxed()) {
        if (const std::optional<QByteArray> bookmark = FolderAccess::makeBookmark(folder))
            remember(destinationBookmarkKey, *bookmark);
    } else {
        remember(destinationKey, folder);
    }
    refresh();
}

void HandoffView::setSecondDestination(const QString &folder)
{
    m_choices.secondDestination = folder;
    remember(secondDestinationKey, folder);
    refresh();
}

void HandoffView::setSidecarFolder(const QString &folder)
{
    m_choices.sidecarFolder = folder;
    refresh();
}

// Layout.

QCheckBox *HandoffView::choiceToggle(const QString &text, const char *name, bool HandoffPlan::Choices::*choice,
                                     const char *key, QWidget *parent)
{
    auto *box = new QCheckBox(text, parent);
    box->setObjectName(QLatin1String(name));
    // Only the user's clicks: refresh() setting the box from the choices writes nothing.
    connect(box, &QCheckBox::clicked, this, [this, choice, key](bool on) {
        m_choices.*choice = on;
        remember(key, on);
        refresh();
    });
    m_choiceWidgets << box;
    return box;
}

void HandoffView::showPluginMessage(const QFuture<QString> &message)
{
    auto *watcher = new QFutureWatcher<QString>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        m_pluginMessage->setText(watcher->result());
        m_pluginMessage->show();
    });
    watcher->setFuture(message);
}

void HandoffView::build()
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(20, 16, 20, 16);
    column->setSpacing(8);

    auto *title = SheetParts::heading(QStringLiteral("Hand off to your editor"), this, nullptr, SheetParts::titleScale);
    column->addWidget(title);
    m_summary = new QLabel(this);
    m_summary->setObjectName(QStringLiteral("summary"));
    column->addWidget(m_summary);

    m_readOnlyWarning = new QWidget(this);
    auto *warningRow = new QHBoxLayout(m_readOnlyWarning);
    warningRow->setContentsMargins(0, 4, 0, 4);
    auto *triangle = new QLabel(m_readOnlyWarning);
    triangle->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(20, 20));
    warningRow->addWidget(triangle, 0, Qt::AlignTop);
    auto *warning = new QLabel(QStringLiteral("This card can't be written to. Choose a folder for the sidecars, or "
                                              "copy your picks first."),
                               m_readOnlyWarning);
    warning->setObjectName(QStringLiteral("readOnlyWarning"));
    warning->setWordWrap(true);
    warningRow->addWidget(warning, 1);
    column->addWidget(m_readOnlyWarning);

    for (QWidget *part : {makeSidecarsSection(), makeFlagsSection(), makeCopySection(), makeRejectsSection()})
        column->addWidget(part);
    column->addStretch(1);
    column->addWidget(makeFooter());
    setMinimumWidth(560);
}

QWidget *HandoffView::makeSidecarsSection()
{
    m_sidecars = headline(choiceToggle(QStringLiteral("Write ratings for Lightroom and Capture One"), "sidecars",
                                       &HandoffPlan::Choices::sidecars, sidecarsKey, this));
    m_sidecarsText = explanation(this, "sidecarsText");
    // Beyond Lightroom: darktable and digiKam look for a sidecar named after the whole file.
    auto *styleRow = new QWidget(this);
    m_sidecarStyle = new QComboBox(styleRow);
    m_sidecarStyle->setObjectName(QStringLiteral("sidecarStyle"));
    m_sidecarStyle->addItems({QStringLiteral("Lightroom and Capture One (IMG_0001.xmp)"),
                              QStringLiteral("darktable and digiKam (IMG_0001.CR3.xmp)")});
    connect(m_sidecarStyle, &QComboBox::activated, this, [this](int index) {
        m_choices.sidecarStyle = index == 1 ? HandoffPlan::SidecarStyle::darktable : HandoffPlan::SidecarStyle::lightroom;
        remember(sidecarStyleKey, index == 1 ? QStringLiteral("darktable") : QStringLiteral("lightroom"));
    });
    styleRow->setLayout(indented({new QLabel(QStringLiteral("Sidecars for"), styleRow), m_sidecarStyle}));
    QPushButton *choose = SheetParts::button(QStringLiteral("Write Sidecars to a Folder…"), this, "chooseSidecarFolder");
    connect(choose, &QPushButton::clicked, this, [this] {
        chooseFolder(QStringLiteral("Choose a folder for the sidecar files. Sorvi mirrors the card's folders inside it."),
                     QStringLiteral("Choose"), [this](const QString &folder) { setSidecarFolder(folder); });
    });
    m_sidecarFolderRow = folderRow(this, m_sidecarFolderName, "sidecarFolderName", choose);
    m_choiceWidgets << m_sidecarStyle << choose;
    return section(this, {m_sidecars, m_sidecarsText, styleRow, m_sidecarFolderRow});
}

QWidget *HandoffView::makeFlagsSection()
{
    m_flagsList = headline(choiceToggle(QStringLiteral("Mark picks and rejects for Lightroom"), "flagsList",
                                        &HandoffPlan::Choices::flagsList, flagsListKey, this));
    QLabel *text = explanation(this, "flagsText");
    text->setText(QStringLiteral("Lightroom ignores pick and reject flags in files. Sorvi adds them as the keywords "
                                 "\u201CSorvi Pick\u201D and \u201CSorvi Reject\u201D, and the Kestrane Sorvi plug-in "
                                 "for Lightroom Classic can turn them into real flags (beta)."));
    auto *buttons = new QWidget(this);
    auto *row = new QHBoxLayout(buttons);
    row->setContentsMargins(24, 0, 0, 0);
    if (LightroomPlugin::installSupported()) {
        QPushButton *install = SheetParts::button(QStringLiteral("Install Lightroom Classic Plug-in"), buttons, "installPlugin");
        connect(install, &QPushButton::clicked, this,
                [this] { showPluginMessage(QtConcurrent::run(&m_pool, &LightroomPlugin::install)); });
        row->addWidget(install);
    }
    QPushButton *save = SheetParts::button(QStringLiteral("Save Lightroom Classic Plug-in…"), buttons, "savePlugin");
    connect(save, &QPushButton::clicked, this, &HandoffView::savePlugin);
    row->addWidget(save);
    row->addStretch(1);
    m_pluginMessage = explanation(this, "pluginMessage");
    m_pluginMessage->hide();
    return section(this, {m_flagsList, text, buttons, m_pluginMessage});
}

QWidget *HandoffView::makeCopySection()
{
    m_copy = headline(
        choiceToggle(QStringLiteral("Copy photos to a folder"), "copy", &HandoffPlan::Choices::copy, copyKey, this));
    m_copyDetails = new QWidget(this);
    auto *details = new QVBoxLayout(m_copyDetails);
    details->setContentsMargins(0, 0, 0, 0);
    details->setSpacing(4);

    m_copyWhat = new QComboBox(m_copyDetails);
    m_copyWhat->setObjectName(QStringLiteral("copyWhat"));
    m_copyWhat->addItems({QString(), QStringLiteral("Rated 1 star or more"), QStringLiteral("Everything except rejects")});
    connect(m_copyWhat, &QComboBox::activated, this, [this](int index) {
        m_choices.copyWhat = copyWhatValues.value(index);
        remember(copyWhatKey, m_choices.copyWhat);
        refresh();
    });
    details->addLayout(indented({new QLabel(QStringLiteral("Which"), m_copyDetails), m_copyWhat}));
    m_removeLocation = choiceToggle(QStringLiteral("Remove location from JPEG and HEIC copies"), "removeLocation",
                                    &HandoffPlan::Choices::removeLocation, removeLocationKey, m_copyDetails);
    details->addLayout(indented({m_removeLocation}));

    m_copyText = explanation(m_copyDetails, "copyText");
    details->addWidget(m_copyText);
    QPushButton *choose = SheetParts::button(QStringLiteral("Choose"), m_copyDetails, "chooseDestination");
    connect(choose, &QPushButton::clicked, this, [this] {
        chooseFolder(QStringLiteral("Choose where to copy the photos. Nothing is overwritten."),
                     QStringLiteral("Copy Here"), [this](const QString &folder) { setDestination(folder); });
    });
    details->addWidget(folderRow(m_copyDetails, m_destinationName, "destinationName", choose));

    // Beyond a single copy: a backup drive, and a manifest to check the copies against later.
    m_second = new QCheckBox(QStringLiteral("Also copy to a second folder (a backup drive)"), m_copyDetails);
    m_second->setObjectName(QStringLiteral("second"));
    QPushButton *chooseSecond = SheetParts::button(QStringLiteral("Choose"), m_copyDetails, "chooseSecondDestination");
    const auto pickSecond = [this] {
        chooseFolder(QStringLiteral("Choose a second folder for the copies, on another drive."),
                     QStringLiteral("Copy Here"), [this](const QString &folder) { setSecondDestination(folder); });
    };
    connect(chooseSecond, &QPushButton::clicked, this, pickSecond);
    connect(m_second, &QCheckBox::clicked, this, [this, pickSecond](bool on) {
        if (!on)
            setSecondDestination({});
        else if (m_choices.secondDestination.isEmpty())
            pickSecond();
        refresh();
    });
    details->addLayout(indented({m_second}));
    QWidget *secondFolder = folderRow(m_copyDetails, m_secondName, "secondName", chooseSecond);
    secondFolder->setContentsMargins(24, 0, 0, 0);
    details->addWidget(secondFolder);
    m_manifest = choiceToggle(QStringLiteral("Write a manifest of the checked copies (sorvi verify checks them again later)"),
                              "manifest", &HandoffPlan::Choices::manifest, manifestKey, m_copyDetails);
    details->addLayout(indented({m_manifest}));

    m_choiceWidgets << m_copyWhat << choose << m_second << chooseSecond;
    return section(this, {m_copy, m_copyDetails});
}

QWidget *HandoffView::makeRejectsSection()
{
    m_moveRejects = headline(choiceToggle(QStringLiteral("Move rejects into a \u201CRejected\u201D folder"), "moveRejects",
                                          &HandoffPlan::Choices::moveRejects, moveRejectsKey, this));
    m_rejectsText = explanation(this, "rejectsText");
    return section(this, {m_moveRejects, m_rejectsText});
}

QWidget *HandoffView::makeFooter()
{
    auto *footer = new QWidget(this);
    auto *column = new QVBoxLayout(footer);
    column->setContentsMargins(0, 8, 0, 0);

    m_progressBar = new QProgressBar(footer);
    m_progressBar->setObjectName(QStringLiteral("progress"));
    m_progressBar->setRange(0, 1000);
    m_progressBar->setTextVisible(false);
    m_progressBar->hide();
    column->addWidget(m_progressBar);

    m_result = new QWidget(footer);
    auto *result = new QVBoxLayout(m_result);
    result->setContentsMargins(0, 0, 0, 0);
    result->addWidget(SheetParts::heading(QStringLiteral("\u2713 Done"), m_result));
    m_reportText = new QLabel(m_result);
    m_reportText->setObjectName(QStringLiteral("reportText"));
    m_reportText->setWordWrap(true);
    m_reportText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    result->addWidget(m_reportText);
    m_failureText = SheetParts::failureText(m_result, "failureText");
    result->addWidget(m_failureText);
    m_result->hide();
    column->addWidget(m_result);

    auto *buttons = new QHBoxLayout;
    m_putBack = SheetParts::button(QStringLiteral("Put Rejects Back"), footer, "putBack");
    connect(m_putBack, &QPushButton::clicked, this, &HandoffView::putBack);
    buttons->addWidget(m_putBack);
    buttons->addStretch(1);
    m_cancel = SheetParts::button(QStringLiteral("Cancel"), footer, "cancel");
    connect(m_cancel, &QPushButton::clicked, this, &HandoffView::reject);
    buttons->addWidget(m_cancel);
    m_handOff = SheetParts::button(QStringLiteral("Hand Off"), footer, "handOff");
    m_handOff->setDefault(true); // Return runs it once it is enabled
    connect(m_handOff, &QPushButton::clicked, this, &HandoffView::run);
    buttons->addWidget(m_handOff);
    m_close = SheetParts::button(QStringLiteral("Close"), footer, "close");
    m_close->hide();
    connect(m_close, &QPushButton::clicked, this, &QDialog::accept);
    buttons->addWidget(m_close);
    column->addLayout(buttons);

    // Whatever closes the sheet, the folder's list follows files that moved.
    connect(this, &QDialog::finished, this, [this] {
        if (m_filesMoved && !m_folder.isEmpty() && m_model.folder() == m_folder)
            m_model.open(m_folder);
        m_filesMoved = false;
    });
    return footer;
}

// State to widgets.

void HandoffView::refresh()
{
    const SorviModel::Counts counts = m_model.counts();
    m_summary->setText(QStringLiteral("%1 picked, %2 rejected, %3 rated, out of %4")
                           .arg(counts.picks)
                           .arg(counts.rejects)
                           .arg(counts.rated)
                           .arg(counts.total));
    const HandoffPlan::Folder folder{m_folder, m_model.shots(), m_model.ratings(), !m_readOnly};
    const int raws = HandoffPlan::rawShots(folder.shots);
    const QList<Shot> toCopy = HandoffPlan::toCopy(folder, m_choices.copyWhat);
    const int rejects = int(HandoffPlan::rejects(folder).size());

    m_readOnlyWarning->setVisible(m_readOnly);
    m_sidecars->setChecked(m_choices.sidecars);
    QString sidecarsText = raws > 0
        ? QStringLiteral("Stars and colour labels go into XMP sidecar files next to the %1. Import the folder (or "
                         "choose Read Metadata from Files) to see them. Lightroom doesn't read pick or reject flags "
                         "from files: copy your picks or give them stars, and move rejects aside.")
              .arg(Wording::counted(raws, QStringLiteral("RAW file")))
        : QStringLiteral("This folder has no RAW files. Lightroom doesn't read sidecars for JPEG and HEIC, so copy "
                         "your picks instead.");
    if (m_choices.copy)
        sidecarsText += QStringLiteral(" They'll go next to the copies.");
    m_sidecarsText->setText(sidecarsText);
    m_sidecarStyle->setCurrentIndex(m_choices.sidecarStyle == HandoffPlan::SidecarStyle::darktable ? 1 : 0);
    m_sidecarFolderRow->setVisible(m_readOnly);
    m_sidecarFolderName->setText(folderName(m_choices.sidecarFolder));
    m_flagsList->setChecked(m_choices.flagsList);

    m_copy->setChecked(m_choices.copy);
    m_copyDetails->setVisible(m_choices.copy);
    m_copyWhat->setItemText(0, QStringLiteral("Picks (%1)").arg(counts.picks));
    // Any stored value but "picks" and "rated" means everything but the rejects.
    const qsizetype which = copyWhatValues.indexOf(m_choices.copyWhat);
    m_copyWhat->setCurrentIndex(which >= 0 ? int(which) : 2);
    m_removeLocation->setChecked(m_choices.removeLocation);
    m_copyText->setText(QStringLiteral("Every copy is read back and checked against the original. RAW+JPEG pairs and "
                                       "sidecars are copied together. %1 selected.")
                            .arg(Wording::counted(toCopy.size(), QStringLiteral("photo"))));
    m_destinationName->setText(folderName(m_choices.destination));
    m_second->setChecked(!m_choices.secondDestination.isEmpty());
    m_secondName->parentWidget()->setVisible(!m_choices.secondDestination.isEmpty());
    m_secondName->setText(folderName(m_choices.secondDestination));
    m_manifest->setChecked(m_choices.manifest);

    m_moveRejects->setChecked(m_choices.moveRejects);
    m_rejectsText->setText(m_readOnly ? QStringLiteral("Can't move rejects: this card can't be written to.")
                                      : QStringLiteral("%1, inside this folder. Nothing is deleted, and you can put "
                                                       "them back.")
                                            .arg(Wording::counted(rejects, QStringLiteral("photo"))));

    for (QWidget *widget : std::as_const(m_choiceWidgets))
        widget->setEnabled(!m_working);
    m_handOff->setEnabled(m_ready && !m_working && !HandoffPlan::nothingToDo(m_choices, m_readOnly) &&
                          !HandoffPlan::needsSidecarFolder(m_choices, m_readOnly));
    m_handOff->setVisible(!m_ran || m_working);
    m_cancel->setVisible(!m_ran || m_working);
    m_close->setVisible(m_ran && !m_working);
    m_progressBar->setVisible(m_working);
    m_progressBar->setValue(int(m_progress * 1000));
    m_result->setVisible(m_ran && !m_working);
    m_reportText->setText(m_report.lines.join(QLatin1Char('\n')));
    m_reportText->setVisible(!m_report.lines.isEmpty());
    m_failureText->setText(m_report.failure);
    m_failureText->setVisible(!m_report.failure.isEmpty());
    m_putBack->setVisible(m_canPutBack && !m_working);
    if (m_close->isVisible())
        m_close->setDefault(true);
}

QString HandoffView::pluginMessage() const { return m_pluginMessage->isVisible() ? m_pluginMessage->text() : QString(); }

// Choosing folders and saving the plug-in: dialogs that never block the event loop.

void HandoffView::chooseFolder(const QString &message, const QString &buttonText,
                               const std::function<void(const QString &)> &take)
{
    auto *dialog = new QFileDialog(this, message);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setLabelText(QFileDialog::Accept, buttonText);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::fileSelected, this, [take](const QString &folder) { take(folder); });
    dialog->open();
}

void HandoffView::savePlugin()
{
    auto *dialog = new QFileDialog(this, QStringLiteral("Save the Lightroom Classic plug-in"));
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->selectFile(LightroomPlugin::bundleName);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString &target) {
        showPluginMessage(QtConcurrent::run(&m_pool, [target] { return LightroomPlugin::save(target); }));
    });
    dialog->open();
}

// Running.

void HandoffView::run()
{
    if (m_working || !m_handOff->isEnabled())
        return;
    const HandoffPlan::Folder folder{m_folder, m_model.shots(), m_model.ratings(), !m_readOnly};
    const MoveLog log(m_folder, m_model.storeDirectory());
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_cancelled = cancelled;
    startTask([this, choices = m_choices, folder, log, cancelled, afterWrite = m_afterCopyWritten] {
        Handoff::CopyWatch watch;
        watch.afterWrite = afterWrite;
        watch.progress = [this](double fraction) {
            QMetaObject::invokeMethod(this, [this, fraction] { setProgress(fraction); }, Qt::QueuedConnection);
        };
        watch.cancelled = [cancelled] { return cancelled->load(); };
        const HandoffPlan::Report report = HandoffPlan::run(choices, folder, log, watch);
        return Outcome{report, movesRecorded(log)};
    });
}

void HandoffView::cancelRun()
{
    if (m_cancelled)
        *m_cancelled = true;
}

void HandoffView::reject()
{
    if (m_working) {
        cancelRun();
        return;
    }
    QDialog::reject();
}

void HandoffView::putBack()
{
    if (m_working)
        return;
    const MoveLog log(m_folder, m_model.storeDirectory());
    startTask([log] {
        const HandoffPlan::Report report = HandoffPlan::putBack(log);
        return Outcome{report, movesRecorded(log)};
    });
}

void HandoffView::startTask(const std::function<Outcome()> &work)
{
    m_working = true;
    m_progress = 0;
    m_report = {};
    refresh();
    m_watcher = new QFutureWatcher<Outcome>(this);
    connect(m_watcher, &QFutureWatcherBase::finished, this, [this, watcher = m_watcher] {
        watcher->deleteLater();
        m_watcher = nullptr;
        showOutcome(watcher->result());
    });
    m_watcher->setFuture(QtConcurrent::run(&m_pool, work));
}

void HandoffView::showOutcome(const Outcome &outcome)
{
    m_working = false;
    m_ran = true;
    m_cancelled.reset();
    m_report = outcome.report;
    // Moves made, or put back, change what the folder holds.
    m_filesMoved = m_filesMoved || outcome.moved || m_canPutBack;
    m_canPutBack = outcome.moved;
    refresh();
    emit taskFinished();
}

void HandoffView::setProgress(double fraction)
{
    if (!m_working)
        return;
    m_progress = fraction;
    m_progressBar->setValue(int(fraction * 1000));
}

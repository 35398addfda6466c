#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/AskAIView.h"
#include "SorviApp/views/Symbols.h"

#include "SorviApp/views/GridView.h"
#include "SorviApp/views/HandoffView.h"
#include "SorviApp/views/ShotPanel.h"
#include "SorviApp/views/LoupeView.h"
#include "SorviApp/model/SorviModel.h"
#include "KestraneStyle/StepBar.h"

#include <QActionGroup>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>

#include <cmath>

namespace {

using Mode = SorviModel::Mode;

QToolButton *toolButton(const QString &text, const QIcon &icon, const QString &help, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setIcon(icon);
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button->setToolTip(help);
    button->setFocusPolicy(Qt::NoFocus);
    button->setAutoRaise(true);
    return button;
}

QComboBox *picker(const QStringList &items, const QString &help, QWidget *parent)
{
    auto *box = new QComboBox(parent);
    box->addItems(items);
    box->setToolTip(help);
    box->setFocusPolicy(Qt::NoFocus); // the browser keeps the keys
    return box;
}

QString starText(int stars) { return stars == 0 ? QStringLiteral("Any rating") : QStringLiteral("%1 and up").arg(stars); }

} // namespace

BrowserView::BrowserView(SorviModel &model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setFocusPolicy(Qt::StrongFocus);
    // The grid connects to the model first, so its cells are current when the count
    // line reads them.
    m_grid = new GridView(model, this);
    m_loupe = new LoupeView(model, this);
    m_gridColumns = m_grid->columns();
    connect(m_grid, &GridView::columnsChanged, this, [this](int columns) { m_gridColumns = columns; });

    m_stack = new QStackedWidget(this);
    m_lookingPage = makeLookingPage();
    m_nothingFoundPage = makeNothingFoundPage();
    for (QWidget *page : {m_lookingPage, m_nothingFoundPage, static_cast<QWidget *>(m_grid),
                          static_cast<QWidget *>(m_loupe)})
        m_stack->addWidget(page);

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(makeToolbar());
    // The inspector sits beside the photos in both modes.
    auto *photos = new QHBoxLayout;
    photos->setContentsMargins(0, 0, 0, 0);
    photos->setSpacing(0);
    photos->addWidget(m_stack, 1);
    m_inspector = new ShotPanel(model, this);
    photos->addWidget(m_inspector);
    column->addLayout(photos, 1);
    column->addWidget(makeStatusBar());

    for (auto signal : {&SorviModel::shotsChanged, &SorviModel::loadingChanged, &SorviModel::modeChanged})
        connect(&model, signal, this, &BrowserView::refreshPage);
    connect(&model, &SorviModel::modeChanged, this, [this] {
        m_viewPicker->setCurrentIndex(m_model.mode() == Mode::grid ? 0 : 1);
    });
    connect(&model, &SorviModel::visibleShotsChanged, this, &BrowserView::refreshCount);
    connect(&model, &SorviModel::shotsChanged, this, &BrowserView::refreshCount);
    connect(&model, &SorviModel::selectionChanged, this, &BrowserView::refreshBurst);
    connect(&model, &SorviModel::burstsChanged, this, &BrowserView::refreshBurst);
    for (auto signal : {&SorviModel::stepChanged, &SorviModel::stepStatusChanged, &SorviModel::loadingChanged,
                        &SorviModel::checkingChanged})
        connect(&model, signal, this, &BrowserView::refreshStepBar);
    connect(&model, &SorviModel::warningChanged, this, &BrowserView::refreshWarning);
    connect(&model, &SorviModel::filterChanged, this, &BrowserView::refreshFilter);
    connect(&model, &SorviModel::minimumStarsChanged, this, &BrowserView::refreshStars);
    connect(&model, &SorviModel::checkingChanged, this, &BrowserView::refreshChecksButton);
    connect(&model, &SorviModel::showChecksChanged, this, [this] { m_showBadges->setChecked(m_model.showChecks()); });
    connect(&model, &SorviModel::showHandoffChanged, this, &BrowserView::refreshHandoff);
    connect(&model, &SorviModel::showAskAIChanged, this, &BrowserView::refreshAskAI);
    connect(&model, &SorviModel::showInspectorChanged, this,
            [this] { m_inspector->setVisible(m_model.showInspector()); });
    m_inspector->setVisible(m_model.showInspector());

    refreshPage();
    refreshCount();
    refreshBurst();
    refreshStepBar();
    refreshWarning();
    refreshChecksButton();
}

QWidget *BrowserView::makeToolbar()
{
    auto *bar = new QWidget(this);
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(8, 6, 12, 6);
    row->setSpacing(8);

    QToolButton *folders =
        toolButton(QStringLiteral("Folders"), Symbols::chevronIcon(), QStringLiteral("Close this folder and open another"), bar);
    connect(folders, &QToolButton::clicked, this, &BrowserView::folderCloseRequested);
    row->addWidget(folders);

    QStringList filters;
    for (const SorviModel::Filter filter : SorviModel::allFilters)
        filters << SorviModel::rawValue(filter);
    m_showPicker = picker(filters, QStringLiteral("Which photos to show"), bar);
    connect(m_showPicker, &QComboBox::activated, this,
            [this](int index) { m_model.setFilter(SorviModel::allFilters[index]); });
    row->addWidget(new QLabel(QStringLiteral("Show"), bar));
    row->addWidget(m_showPicker);

    row->addWidget(makeStarButton());

    m_viewPicker = picker({QStringLiteral("Grid"), QStringLiteral("Single photo")},
                          QStringLiteral("Grid or single photo (Return)"), bar);
    connect(m_viewPicker, &QComboBox::activated, this, [this](int index) {
        m_model.setMode(index == 0 ? Mode::grid : Mode::loupe);
        m_model.setZoomed(false);
    });
    row->addWidget(new QLabel(QStringLiteral("View"), bar));
    row->addWidget(m_viewPicker);

    row->addWidget(makeChecksButton());
    row->addStretch(1);
    m_countLine = new QLabel(bar);
    m_countLine->setObjectName(QStringLiteral("countLine"));
    row->addWidget(m_countLine);

    QToolButton *askAI = toolButton(QStringLiteral("Ask an AI"), Symbols::sparklesIcon(),
                                    QStringLiteral("Ask Claude, ChatGPT or Grok, with your own key, to choose photos"),
                                    bar);
    askAI->setObjectName(QStringLiteral("askAIButton"));
    connect(askAI, &QToolButton::clicked, this, [this] { m_model.setShowAskAI(true); });
    row->addWidget(askAI);

    QToolButton *handOff = toolButton(QStringLiteral("Hand Off"), Symbols::handOffIcon(),
                                      QStringLiteral("Write ratings for Lightroom and Capture One, copy your picks, "
                                                     "move rejects aside"),
                                      bar);
    handOff->setObjectName(QStringLiteral("handOffButton"));
    connect(handOff, &QToolButton::clicked, this, [this] { m_model.setShowHandoff(true); });
    row->addWidget(handOff);
    refreshFilter();
    refreshStars();
    return bar;
}

HandoffView *BrowserView::handoffView() const { return m_handoff; }

AskAIView *BrowserView::askAIView() const { return m_askAI; }

void BrowserView::refreshAskAI()
{
    if (!m_model.showAskAI()) {
        if (m_askAI)
            m_askAI->reject(); // an ask in flight goes on and still reaches the model
        return;
    }
    if (m_askAI || m_model.folder().isEmpty()) {
        m_model.setShowAskAI(bool(m_askAI));
        return;
    }
    m_askAI = new AskAIView(m_model, this);
    m_askAI->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_askAI, &AskAIView::settingsRequested, this, &BrowserView::settingsRequested);
    connect(m_askAI, &QDialog::finished, this, [this] {
        m_askAI = nullptr;
        m_model.setShowAskAI(false);
    });
    m_askAI->open();
}

void BrowserView::refreshHandoff()
{
    if (!m_model.showHandoff()) {
        if (m_handoff)
            m_handoff->reject(); // cancels a run first; the sheet closes when it has stopped
        return;
    }
    if (m_handoff || m_model.folder().isEmpty())
        return;
    m_handoff = new HandoffView(m_model, this);
    m_handoff->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_handoff, &QDialog::finished, this, [this] {
        m_handoff = nullptr;
        m_model.setShowHandoff(false);
    });
    m_handoff->open();
}

QToolButton *BrowserView::makeStarButton()
{
    m_starButton = toolButton(QString(), QIcon(), QStringLiteral("Only show photos with at least this many stars"), this);
    m_starButton->setObjectName(QStringLiteral("starButton"));
    m_starButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_starButton->setPopupMode(QToolButton::InstantPopup);
    auto *menu = new QMenu(m_starButton);
    m_starGroup = new QActionGroup(menu);
    for (int stars = 0; stars <= 5; ++stars) {
        QAction *action = menu->addAction(starText(stars));
        action->setCheckable(true);
        action->setData(stars);
        m_starGroup->addAction(action);
        connect(action, &QAction::triggered, this, [this, stars] { m_model.setMinimumStars(stars); });
    }
    m_starButton->setMenu(menu);
    return m_starButton;
}

QToolButton *BrowserView::makeChecksButton()
{
    m_checksButton = toolButton(QStringLiteral("Checks"), Symbols::wandIcon(),
                                QStringLiteral("Sharpness, closed eyes and the best frame of each burst, "
                                               "checked on this computer"),
                                this);
    m_checksButton->setObjectName(QStringLiteral("checksButton"));
    m_checksButton->setPopupMode(QToolButton::InstantPopup);
    m_checksMenu = new QMenu(m_checksButton);
    using Bulk = void (*)(SorviModel &);
    const std::pair<const char *, Bulk> bulk[] = {
        {"Reject Soft Photos (%1)", [](SorviModel &m) { m.rejectSoft(); }},
        {"Reject Photos with Closed Eyes (%1)", [](SorviModel &m) { m.rejectEyesClosed(); }},
        {"Pick the Best of Each Burst (%1)", [](SorviModel &m) { m.pickBestOfBursts(); }},
        {"Reject the Rest of Each Burst (%1)", [](SorviModel &m) { m.rejectRestOfBursts(); }},
    };
    for (const auto &[text, operation] : bulk) {
        QAction *action = m_checksMenu->addAction(QString());
        action->setData(QString::fromLatin1(text));
        connect(action, &QAction::triggered, this, [this, run = operation] { run(m_model); });
        m_bulkActions << action;
    }
    m_checksMenu->addSeparator();
    m_showBadges = m_checksMenu->addAction(QStringLiteral("Show Check Badges"));
    m_showBadges->setCheckable(true);
    m_showBadges->setChecked(m_model.showChecks());
    connect(m_showBadges, &QAction::toggled, &m_model, &SorviModel::setShowChecks);
    m_checksMenu->addSeparator();
    const QString undo = QKeySequence(QKeySequence::Undo).toString(QKeySequence::NativeText);
    m_checksMenu->addAction(QStringLiteral("Changes only photos you haven't picked or rejected · %1 undoes").arg(undo))
        ->setEnabled(false);
    connect(m_checksMenu, &QMenu::aboutToShow, this, &BrowserView::refreshChecksMenu);
    m_checksButton->setMenu(m_checksMenu);
    refreshChecksMenu();
    return m_checksButton;
}

void BrowserView::refreshChecksMenu()
{
    const IdSet sets[] = {m_model.soft(), m_model.eyesClosed(), m_model.bestOfBurst(), m_model.restOfBursts()};
    for (int i = 0; i < m_bulkActions.size(); ++i) {
        const int count = m_model.count(sets[i]);
        m_bulkActions[i]->setText(m_bulkActions[i]->data().toString().arg(count));
        m_bulkActions[i]->setEnabled(count > 0);
    }
}

QWidget *BrowserView::makeLookingPage()
{
    auto *page = new QWidget(this);
    auto *column = new QVBoxLayout(page);
    column->addStretch(1);
    auto *busy = new QProgressBar(page);
    busy->setRange(0, 0); // no known end while the folder is listed
    busy->setTextVisible(false);
    busy->setFixedSize(160, 6);
    column->addWidget(busy, 0, Qt::AlignHCenter);
    column->addWidget(new QLabel(QStringLiteral("Looking for photos…"), page), 0, Qt::AlignHCenter);
    column->addStretch(1);
    return page;
}

QWidget *BrowserView::makeNothingFoundPage()
{
    auto *page = new QWidget(this);
    auto *column = new QVBoxLayout(page);
    column->addStretch(1);
    column->addWidget(new QLabel(QStringLiteral("No photos found in this folder."), page), 0, Qt::AlignHCenter);
    auto *open = new QPushButton(QStringLiteral("Open Another Folder…"), page);
    open->setObjectName(QStringLiteral("openAnotherFolder"));
    open->setFocusPolicy(Qt::NoFocus);
    connect(open, &QPushButton::clicked, this, &BrowserView::openFolderRequested);
    column->addWidget(open, 0, Qt::AlignHCenter);
    column->addStretch(1);
    return page;
}

QWidget *BrowserView::makeStatusBar()
{
    auto *bar = new QWidget(this);
    auto *column = new QVBoxLayout(bar);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    // Something of ours that could not be saved or read: above the status, never only logged.
    m_warningLine = new QLabel(bar);
    m_warningLine->setObjectName(QStringLiteral("warningLine"));
    m_warningLine->setWordWrap(true);
    m_warningLine->setStyleSheet(QStringLiteral("QLabel { color: #7a2e00; background: #fff1c2; padding: 4px 12px; }"));
    column->addWidget(m_warningLine);
    auto *row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 12, 0);
    m_stepBar = new StepBar(StepBar::sorviSteps(), bar);
    row->addWidget(m_stepBar, 1);
    m_burstLabel = new QLabel(bar);
    m_burstLabel->setObjectName(QStringLiteral("burstLabel"));
    row->addWidget(m_burstLabel);
    column->addLayout(row);
    return bar;
}

void BrowserView::refreshWarning()
{
    const QString warning = m_model.warning();
    m_warningLine->setText(QStringLiteral("\u26A0 ") + warning);
    m_warningLine->setVisible(!warning.isEmpty());
}

void BrowserView::refreshPage()
{
    QWidget *page = m_model.mode() == Mode::grid ? static_cast<QWidget *>(m_grid) : m_loupe;
    if (m_model.shots().isEmpty())
        page = m_model.loading() ? m_lookingPage : m_nothingFoundPage;
    m_stack->setCurrentWidget(page);
}

void BrowserView::refreshCount()
{
    m_countLine->setText(QStringLiteral("%1 of %2 photos").arg(m_grid->count()).arg(m_model.shots().size()));
}

void BrowserView::refreshBurst()
{
    const BurstMap bursts = m_model.bursts();
    const auto burst = bursts.constFind(m_model.selection());
    m_burstLabel->setText(burst == bursts.cend() ? QString() : QStringLiteral("Burst %1").arg(*burst));
}

void BrowserView::refreshStepBar()
{
    m_stepBar->setCurrent(m_model.step());
    m_stepBar->setStatus(m_model.stepStatus());
    m_stepBar->setBusy(m_model.loading() || m_model.checking());
}

void BrowserView::refreshFilter()
{
    const auto &filters = SorviModel::allFilters;
    m_showPicker->setCurrentIndex(int(std::find(std::begin(filters), std::end(filters), m_model.filter()) -
                                      std::begin(filters)));
}

void BrowserView::refreshStars()
{
    const int stars = m_model.minimumStars();
    m_starButton->setText(stars == 0 ? starText(0) : QStringLiteral("\u2605 ") + starText(stars));
    m_starGroup->actions().at(stars)->setChecked(true);
}

void BrowserView::refreshChecksButton()
{
    m_checksButton->setText(m_model.checking() ? QStringLiteral("Checking") : QStringLiteral("Checks"));
}

KeyAction BrowserView::actionFor(const QKeyEvent &press) const
{
    return KeyboardMap::action(press.key(), press.modifiers(), press.text(), m_model.mode(), m_model.zoomed(),
                               m_gridColumns);
}

bool BrowserView::event(QEvent *event)
{
    // Claim our own keys before window shortcuts see them, and leave every other press
    // (Ctrl+Z above all) to the shortcuts.
    if (event->type() == QEvent::ShortcutOverride) {
        if (actionFor(*static_cast<QKeyEvent *>(event)).kind == KeyAction::Kind::none)
            return QWidget::event(event);
        event->accept();
        return true;
    }
    return QWidget::event(event);
}

void BrowserView::keyPressEvent(QKeyEvent *event)
{
    const KeyAction action = actionFor(*event);
    if (action.kind == KeyAction::Kind::none)
        return QWidget::keyPressEvent(event);
    apply(action);
    event->accept();
}

void BrowserView::apply(const KeyAction &action)
{
    using Kind = KeyAction::Kind;
    switch (action.kind) {
    case Kind::none: break;
    case Kind::move: m_model.move(action.amount); break;
    case Kind::toggleMode:
        m_model.setMode(m_model.mode() == Mode::grid ? Mode::loupe : Mode::grid);
        m_model.setZoomed(false);
        break;
    case Kind::showGrid:
        // Zoom belongs to the single photo; leaving it leaves zoom too.
        m_model.setMode(Mode::grid);
        m_model.setZoomed(false);
        break;
    case Kind::showSingle: m_model.setMode(Mode::loupe); break;
    case Kind::unzoom: m_model.setZoomed(false); break;
    case Kind::toggleZoom:
        m_model.setZoomAnchor(QPointF(0.5, 0.5));
        m_model.setZoomed(!m_model.zoomed());
        break;
    case Kind::magnify: m_loupe->magnifyBy(std::pow(2.0, action.amount / 2.0)); break;
    case Kind::setStars: m_model.setStars(action.amount); break;
    case Kind::setLabel: m_model.setLabel(action.label); break;
    case Kind::pick: m_model.pick(); break;
    case Kind::reject: m_model.reject(); break;
    case Kind::unflag: m_model.unflag(); break;
    }
}

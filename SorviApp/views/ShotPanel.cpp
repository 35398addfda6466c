#include "SorviApp/views/ShotPanel.h"

#include "SorviApp/model/SorviModel.h"
#include "SorviApp/views/FaceCrops.h"
#include "SorviApp/views/HistogramView.h"
#include "SorviApp/views/RatingBadges.h"
#include "SorviApp/views/ShotImage.h"
#include "SorviApp/views/ZoomGeometry.h"
#include "SorviKit/checks/CheckReasons.h"
#include "SorviKit/core/CpuShare.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace {

using Label = Rating::Label;

const QString greyText = QStringLiteral("color: #7a7a7a;");

QString starText(int stars) { return stars == 1 ? QStringLiteral("1 star") : QStringLiteral("%1 stars").arg(stars); }

// The size as the photo stands, quarter turns applied.
QString sizeText(const Shot &shot)
{
    const QSizeF size = ZoomGeometry::displayedSize(shot);
    return size.isEmpty() ? QString() : QStringLiteral("%1 \u00D7 %2").arg(size.width()).arg(size.height());
}

QLabel *title(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

// A section's column: its title (when it has one) above what follows.
QVBoxLayout *sectionColumn(QWidget *box, const QString &heading)
{
    auto *column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(6);
    if (!heading.isEmpty())
        column->addWidget(title(heading, box));
    return column;
}

// Name-and-value rows: names in a narrow column, values taking the rest.
QGridLayout *rowGrid(int rowSpacing)
{
    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(rowSpacing);
    grid->setColumnStretch(1, 1);
    return grid;
}

QFrame *separator(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFixedHeight(1);
    line->setStyleSheet(QStringLiteral("background: #d4d4d4;"));
    return line;
}

QToolButton *button(const QString &name, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(name);
    button->setCheckable(true);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::NoFocus); // the browser keeps the keys
    return button;
}

QIcon badgeIcon(void (*paint)(QPainter &, const QRectF &))
{
    QPixmap pixmap(40, 40);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(painter, QRectF(2, 2, 36, 36));
    return QIcon(pixmap);
}

// A label's swatch; the chosen one wears a dark ring, so the state shows without colour.
QIcon swatchIcon(const QColor &colour)
{
    QIcon icon;
    for (const QIcon::State state : {QIcon::Off, QIcon::On}) {
        QPixmap pixmap(40, 40);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        if (state == QIcon::On) {
            painter.setPen(QPen(QColor(0x30, 0x30, 0x30), 3));
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(QRectF(2, 2, 36, 36));
        }
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour);
        painter.drawEllipse(QRectF(8, 8, 24, 24));
        icon.addPixmap(pixmap, QIcon::Normal, state);
    }
    return icon;
}

} // namespace

ShotPanel::ShotPanel(SorviModel &model, QWidget *parent) : QScrollArea(parent), m_model(model)
{
    setObjectName(QStringLiteral("inspector"));
    setFixedWidth(panelWidth);
    setFocusPolicy(Qt::NoFocus);
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Two threads, so that a slow preview decode for the faces never holds up the
    // histogram of the next photo.
    m_pool.setMaxThreadCount(2);
    m_preview = new ShotImage(model.previews(), m_pool, CpuShare::aheadNiceness, this);
    connect(m_preview, &ShotImage::imageReady, this, &ShotPanel::countTones);

    auto *content = new QWidget(this);
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(12, 12, 12, 12);
    m_noSelection = new QLabel(QStringLiteral("No photo selected"), content);
    m_noSelection->setObjectName(QStringLiteral("noSelection"));
    m_noSelection->setAlignment(Qt::AlignCenter);
    m_noSelection->setStyleSheet(greyText);
    column->addWidget(m_noSelection);

    m_details = new QWidget(content);
    m_details->setObjectName(QStringLiteral("details"));
    auto *sections = new QVBoxLayout(m_details);
    sections->setContentsMargins(0, 0, 0, 0);
    sections->setSpacing(12);
    const QList<QWidget *> parts{makeFacts(), makeRating(), makeChecks(), makeHistogram(), makeKeys()};
    for (QWidget *part : parts) {
        if (part != parts.first())
            sections->addWidget(separator(m_details));
        sections->addWidget(part);
    }
    column->addWidget(m_details);
    column->addStretch(1);
    setWidget(content);

    for (auto signal : {&SorviModel::selectionChanged, &SorviModel::shotsChanged, &SorviModel::assessmentsChanged,
                        &SorviModel::softChanged, &SorviModel::bestOfBurstChanged, &SorviModel::burstsChanged,
                        &SorviModel::checkingChanged, &SorviModel::aiPicksChanged})
        connect(&model, signal, this, &ShotPanel::refresh);
    connect(&model, &SorviModel::ratingsChanged, this, &ShotPanel::refreshRating);
    connect(&model, &SorviModel::autoAdvanceChanged, this,
            [this] { m_autoAdvance->setChecked(m_model.autoAdvance()); });
    refresh();
}

ShotPanel::~ShotPanel()
{
    delete m_preview; // cancels a request no worker took up yet
    if (m_facesCancelled)
        *m_facesCancelled = true;
    m_pool.clear();
    m_pool.waitForDone();
}

// Building.

void ShotPanel::addRow(QGridLayout *grid, const QString &name)
{
    auto *nameLabel = new QLabel(name, grid->parentWidget());
    nameLabel->setStyleSheet(greyText);
    nameLabel->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    auto *value = new QLabel(grid->parentWidget());
    value->setObjectName(name);
    value->setWordWrap(true);
    value->setMinimumWidth(1); // a long file name is cut rather than widening the panel
    const int row = grid->rowCount();
    grid->addWidget(nameLabel, row, 0);
    grid->addWidget(value, row, 1);
    m_rows.insert(name, {nameLabel, value});
}

void ShotPanel::addLine(QGridLayout *grid, const QString &name)
{
    auto *value = new QLabel(grid->parentWidget());
    value->setObjectName(name);
    value->setWordWrap(true);
    grid->addWidget(value, grid->rowCount(), 0, 1, 2);
    m_rows.insert(name, {nullptr, value});
}

void ShotPanel::setRow(const QString &name, const QString &value)
{
    const Row &row = m_rows[name];
    row.value->setText(value);
    row.value->setVisible(!value.isEmpty());
    if (row.name)
        row.name->setVisible(!value.isEmpty());
}

QWidget *ShotPanel::makeFacts()
{
    auto *box = new QWidget(m_details);
    box->setObjectName(QStringLiteral("facts"));
    QGridLayout *grid = rowGrid(4);
    box->setLayout(grid);
    grid->setContentsMargins(0, 0, 0, 0);
    for (const char *name : {"Files", "Taken", "Camera", "Lens", "Exposure", "Size", "Burst"})
        addRow(grid, QString::fromLatin1(name));
    return box;
}

QWidget *ShotPanel::makeRating()
{
    auto *box = new QWidget(m_details);
    box->setObjectName(QStringLiteral("rating"));
    QVBoxLayout *column = sectionColumn(box, QStringLiteral("Rating"));

    auto *stars = new QHBoxLayout;
    stars->setSpacing(0);
    for (int count = 1; count <= 5; ++count) {
        QToolButton *star = button(QStringLiteral("star%1").arg(count), box);
        star->setText(QStringLiteral("\u2605"));
        star->setAccessibleName(starText(count));
        star->setToolTip(QStringLiteral("%1 (%2)").arg(starText(count)).arg(count));
        star->setStyleSheet(QStringLiteral("QToolButton { border: none; color: #c4c4c4; font-size: 20px; padding: 0 2px; }"
                                           "QToolButton:hover { color: #9a9a9a; }"
                                           "QToolButton:checked { color: %1; }")
                                .arg(RatingBadges::starColour.name()));
        // Choosing the stars a photo has already clears them, as 0 does.
        connect(star, &QToolButton::clicked, this, [this, count] {
            m_model.setStars(m_model.rating(m_model.selection()).stars == count ? 0 : count);
            refreshRating();
        });
        stars->addWidget(star);
        m_stars << star;
    }
    stars->addSpacing(8);
    m_starCount = new QLabel(box);
    m_starCount->setObjectName(QStringLiteral("starCount"));
    m_starCount->setStyleSheet(greyText);
    stars->addWidget(m_starCount);
    stars->addStretch(1);
    column->addLayout(stars);

    auto *flags = new QHBoxLayout;
    const QString flagStyle = QStringLiteral("QToolButton { border: 1px solid #c8c8c8; border-radius: 5px; padding: 3px 10px 3px 6px; }"
                                             "QToolButton:hover { background: #ececec; }"
                                             "QToolButton:checked { background: %1; border-color: %2; }");
    m_pick = button(QStringLiteral("pickButton"), box);
    m_pick->setText(QStringLiteral("Pick"));
    m_pick->setToolTip(QStringLiteral("Pick (P)"));
    m_pick->setIcon(badgeIcon(&RatingBadges::paintPick));
    m_reject = button(QStringLiteral("rejectButton"), box);
    m_reject->setText(QStringLiteral("Reject"));
    m_reject->setToolTip(QStringLiteral("Reject (X)"));
    m_reject->setIcon(badgeIcon(&RatingBadges::paintReject));
    for (auto [flagButton, colour] : {std::pair{m_pick, RatingBadges::pickColour}, {m_reject, RatingBadges::rejectColour}}) {
        QColor tint = colour;
        tint.setAlpha(50);
        flagButton->setStyleSheet(flagStyle.arg(tint.name(QColor::HexArgb), colour.name()));
        flagButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        flagButton->setIconSize(QSize(18, 18));
        flags->addWidget(flagButton);
    }
    connect(m_pick, &QToolButton::clicked, this, [this] {
        m_model.pick();
        refreshRating();
    });
    connect(m_reject, &QToolButton::clicked, this, [this] {
        m_model.reject();
        refreshRating();
    });
    flags->addStretch(1);
    column->addLayout(flags);

    auto *labels = new QHBoxLayout;
    labels->setSpacing(2);
    for (const Label label : Rating::allLabels) {
        if (label == Label::none)
            continue;
        const QString name = Rating::rawValue(label);
        QToolButton *swatch = button(QStringLiteral("label") + name, box);
        swatch->setIcon(swatchIcon(RatingBadges::labelColour(label)));
        swatch->setIconSize(QSize(20, 20));
        swatch->setToolTip(name);
        swatch->setAccessibleName(name);
        swatch->setStyleSheet(QStringLiteral("QToolButton { border: none; padding: 1px; }"));
        connect(swatch, &QToolButton::clicked, this, [this, label] {
            m_model.setLabel(label);
            refreshRating();
        });
        labels->addWidget(swatch);
        m_labels.insert(label, swatch);
    }
    labels->addStretch(1);
    column->addLayout(labels);

    m_autoAdvance = new QCheckBox(QStringLiteral("Move to the next photo after rating"), box);
    m_autoAdvance->setObjectName(QStringLiteral("autoAdvance"));
    m_autoAdvance->setFocusPolicy(Qt::NoFocus);
    m_autoAdvance->setChecked(m_model.autoAdvance());
    connect(m_autoAdvance, &QCheckBox::clicked, &m_model, &SorviModel::setAutoAdvance);
    column->addWidget(m_autoAdvance);
    return box;
}

QWidget *ShotPanel::makeChecks()
{
    auto *box = new QWidget(m_details);
    box->setObjectName(QStringLiteral("checks"));
    QVBoxLayout *column = sectionColumn(box, {});
    auto *heading = new QHBoxLayout;
    heading->addWidget(title(QStringLiteral("Checks"), box));
    auto *where = new QLabel(QStringLiteral("on this computer"), box);
    where->setStyleSheet(greyText);
    heading->addWidget(where);
    heading->addStretch(1);
    column->addLayout(heading);

    m_checksState = new QLabel(box);
    m_checksState->setObjectName(QStringLiteral("checksState"));
    column->addWidget(m_checksState);
    QGridLayout *grid = rowGrid(4);
    column->addLayout(grid);
    // The grid's rows belong to the box; QGridLayout::parentWidget() is set only once added.
    addRow(grid, QStringLiteral("Focus"));
    addRow(grid, QStringLiteral("Faces"));
    addLine(grid, QStringLiteral("Frame"));
    addLine(grid, QStringLiteral("Chosen"));

    m_facesBox = new QWidget(box);
    m_facesBox->setObjectName(QStringLiteral("faces"));
    m_facesGrid = new QGridLayout(m_facesBox);
    m_facesGrid->setContentsMargins(0, 4, 0, 0);
    m_facesGrid->setSpacing(10);
    m_facesGrid->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    column->addWidget(m_facesBox);
    return box;
}

QWidget *ShotPanel::makeHistogram()
{
    auto *box = new QWidget(m_details);
    QVBoxLayout *column = sectionColumn(box, QStringLiteral("Histogram"));
    m_histogram = new HistogramView(box);
    m_histogram->setObjectName(QStringLiteral("histogram"));
    column->addWidget(m_histogram);
    return box;
}

QWidget *ShotPanel::makeKeys()
{
    auto *box = new QWidget(m_details);
    box->setObjectName(QStringLiteral("keys"));
    QVBoxLayout *column = sectionColumn(box, QStringLiteral("Keys"));
    QGridLayout *grid = rowGrid(3);
    const std::pair<const char16_t *, const char16_t *> keys[] = {
        {u"P / X / U", u"Pick / reject / clear"},
        {u"1\u20135, 0", u"Stars, none"},
        {u"6 7 8 9", u"Red, yellow, green, blue"},
        {u"\u2190 \u2192", u"Previous / next"},
        {u"Return", u"Grid \u2194 single photo"},
        {u"Space, Z", u"Zoom to 100% (or double-click a spot)"},
        {u"Drag, pinch", u"Move around, zoom in or out"},
    };
    for (const auto &[key, what] : keys) {
        auto *keyLabel = new QLabel(QString::fromUtf16(key), box);
        keyLabel->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        QFont font = keyLabel->font();
        font.setWeight(QFont::DemiBold);
        keyLabel->setFont(font);
        auto *whatLabel = new QLabel(QString::fromUtf16(what), box);
        whatLabel->setWordWrap(true);
        whatLabel->setStyleSheet(greyText);
        const int row = grid->rowCount();
        grid->addWidget(keyLabel, row, 0);
        grid->addWidget(whatLabel, row, 1);
    }
    column->addLayout(grid);
    return box;
}

// Reading the model.

void ShotPanel::refresh()
{
    const std::optional<Shot> shot = m_model.selectedShot();
    m_noSelection->setVisible(!shot);
    m_details->setVisible(shot.has_value());
    if (shot) {
        refreshFacts(*shot);
        refreshRating();
        refreshChecks();
    }
    refreshFaces();
    refreshHistogram();
}

void ShotPanel::refreshFacts(const Shot &shot)
{
    QStringList names;
    for (const QString &file : shot.files)
        names << QFileInfo(file).fileName();
    setRow(QStringLiteral("Files"), names.join(QLatin1Char('\n')));
    setRow(QStringLiteral("Taken"),
           shot.captureDate ? QLocale().toString(shot.captureDate->toLocalTime(), QStringLiteral("d MMM yyyy, HH:mm:ss"))
                            : QString());
    setRow(QStringLiteral("Camera"), shot.camera.value_or(QString()));
    setRow(QStringLiteral("Lens"), shot.lens.value_or(QString()));
    setRow(QStringLiteral("Exposure"), shot.exposure.value_or(QString()));
    setRow(QStringLiteral("Size"), sizeText(shot));
    const BurstMap bursts = m_model.bursts();
    const auto burst = bursts.constFind(shot.id);
    setRow(QStringLiteral("Burst"), burst == bursts.cend()
                                        ? QString()
                                        : QStringLiteral("%1 frames").arg(std::count(bursts.cbegin(), bursts.cend(), *burst)));
}

void ShotPanel::refreshRating()
{
    const Rating rating = m_model.rating(m_model.selection());
    for (int i = 0; i < m_stars.size(); ++i)
        m_stars[i]->setChecked(i < rating.stars);
    m_starCount->setText(starText(rating.stars));
    m_pick->setChecked(rating.flag == Rating::Flag::pick);
    m_reject->setChecked(rating.flag == Rating::Flag::reject);
    for (auto it = m_labels.cbegin(); it != m_labels.cend(); ++it)
        it.value()->setChecked(it.key() == rating.label);
}

void ShotPanel::refreshChecks()
{
    const QString id = m_model.selection();
    const AssessmentMap results = m_model.assessments();
    const auto result = results.constFind(id);
    const bool checked = result != results.cend();
    m_checksState->setText(checked ? QString()
                                   : m_model.checking() ? QStringLiteral("Checking") : QStringLiteral("Not checked"));
    m_checksState->setVisible(!checked);
    setRow(QStringLiteral("Focus"), checked ? CheckReasons::focus(id, results, m_model.soft()) : QString());
    setRow(QStringLiteral("Faces"), checked ? CheckReasons::faces(*result) : QString());
    QString frame;
    if (checked && m_model.bursts().contains(id)) {
        const QList<QStringList> groups = m_model.burstGroups();
        const auto burst = std::find_if(groups.begin(), groups.end(), [&](const QStringList &g) { return g.contains(id); });
        if (burst != groups.end())
            frame = CheckReasons::burst(id, *burst, results, m_model.bestOfBurst(),
                                        [](const QString &other) { return other.section(QLatin1Char('/'), -1); });
    }
    setRow(QStringLiteral("Frame"), frame);
    const AIPickMap picks = m_model.aiPicks();
    const auto pick = picks.constFind(id);
    setRow(QStringLiteral("Chosen"), pick == picks.cend() ? QString() : QStringLiteral("Chosen: ") + *pick);
}

// Pictures.

void ShotPanel::showEvent(QShowEvent *event)
{
    QScrollArea::showEvent(event);
    // Nothing was loaded while hidden.
    refreshFaces();
    refreshHistogram();
}

void ShotPanel::refreshFaces()
{
    const std::optional<Shot> shot = m_model.selectedShot();
    const Shot target = shot.value_or(Shot());
    const QList<FaceMark> marks = shot ? m_model.assessments().value(shot->id).faceMarks : QList<FaceMark>();
    const bool samePicture = target.id == m_facesShot.id && target.files == m_facesShot.files &&
                             target.orientation == m_facesShot.orientation;
    if (!samePicture || marks != m_facesMarks) {
        if (m_facesCancelled)
            *m_facesCancelled = true;
        m_facesCancelled.reset();
        if (m_facesWatcher) {
            m_facesWatcher->disconnect(this);
            m_facesWatcher->deleteLater();
            m_facesWatcher = nullptr;
        }
        m_facesShot = target;
        m_facesMarks = marks;
        m_facesRequested = false;
        for (const FaceTile &tile : std::as_const(m_faceTiles))
            delete tile.picture->parentWidget();
        m_faceTiles.clear();
        for (const FaceMark &mark : marks) {
            auto *tileBox = new QWidget(m_facesBox);
            auto *tileColumn = new QVBoxLayout(tileBox);
            tileColumn->setContentsMargins(0, 0, 0, 0);
            tileColumn->setSpacing(3);
            auto *picture = new QLabel(tileBox);
            picture->setFixedSize(faceSide, faceSide);
            picture->setStyleSheet(QStringLiteral("background: #cfcfcf; border-radius: 4px;")); // until the crop arrives
            tileColumn->addWidget(picture);
            auto *caption = new QLabel(mark.eyesClosed    ? QStringLiteral("Eyes closed")
                                       : mark.eyesUnclear ? QStringLiteral("Eyes not clear")
                                                          : QStringLiteral("Eyes open"),
                                       tileBox);
            caption->setAlignment(Qt::AlignHCenter);
            caption->setStyleSheet(mark.eyesClosed ? QStringLiteral("color: %1;").arg(RatingBadges::rejectColour.name())
                                                   : greyText);
            tileColumn->addWidget(caption);
            const int index = int(m_faceTiles.size());
            m_facesGrid->addWidget(tileBox, index / 2, index % 2);
            m_faceTiles.append({picture, false});
        }
    }
    m_facesBox->setVisible(!marks.isEmpty());
    if (!m_facesRequested && !marks.isEmpty() && isVisible()) {
        m_facesRequested = true;
        loadFaces(target, marks);
    }
}

void ShotPanel::loadFaces(const Shot &shot, const QList<FaceMark> &marks)
{
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_facesCancelled = cancelled;
    auto *watcher = new QFutureWatcher<QList<QImage>>(this);
    m_facesWatcher = watcher;
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, id = shot.id] {
        watcher->deleteLater();
        if (watcher != m_facesWatcher)
            return;
        m_facesWatcher = nullptr;
        m_facesCancelled.reset();
        if (id == m_model.selection())
            showFaces(id, watcher->result());
    });
    const int side = int(std::ceil(faceSide * devicePixelRatioF()));
    const int maxPixels = SorviModel::screenPixels();
    watcher->setFuture(QtConcurrent::run(&m_pool, [previews = &m_model.previews(), shot, marks, side, maxPixels,
                                                   cancelled] {
        // Another photo was chosen before a worker got here: no decode at all.
        if (*cancelled)
            return QList<QImage>();
        CpuShare::standBack(CpuShare::aheadNiceness);
        // The screen-sized preview the loupe shows is usually cached already and holds
        // enough pixels for most faces; only a small face sends us to the full picture.
        const std::optional<ShotPreview> preview = previews->preview(shot, maxPixels);
        if (!preview || *cancelled)
            return QList<QImage>();
        // Boxes are fractions of the upright picture.
        QImage picture = PreviewLoader::upright(preview->image, preview->orientation);
        if (FaceCrops::needsMorePixels(marks, picture.size(), side)) {
            const std::optional<ShotPreview> full = *cancelled ? std::nullopt : PreviewLoader::fullResolution(shot);
            if (full && full->image.width() * full->image.height() > preview->image.width() * preview->image.height())
                picture = PreviewLoader::upright(full->image, full->orientation);
        }
        return *cancelled ? QList<QImage>() : FaceCrops::cut(picture, marks, side);
    }));
}

void ShotPanel::showFaces(const QString &id, const QList<QImage> &crops)
{
    if (id != m_facesShot.id)
        return;
    for (qsizetype i = 0; i < std::min(crops.size(), m_faceTiles.size()); ++i) {
        if (crops[i].isNull())
            continue;
        QPixmap pixmap = QPixmap::fromImage(crops[i]);
        pixmap.setDevicePixelRatio(devicePixelRatioF());
        m_faceTiles[i].picture->setPixmap(pixmap);
        m_faceTiles[i].loaded = true;
    }
}

int ShotPanel::loadedFaceCount() const
{
    return int(std::count_if(m_faceTiles.cbegin(), m_faceTiles.cend(), [](const FaceTile &tile) { return tile.loaded; }));
}

void ShotPanel::refreshHistogram()
{
    if (!isVisible())
        return;
    const std::optional<Shot> shot = m_model.selectedShot();
    if (!shot || m_preview->shot().id != shot->id) {
        // The curve of another photo would mislead; show none until this one's is counted.
        m_histogram->setCounts(std::nullopt);
        m_countedImage = 0;
        if (m_tonesWatcher) {
            m_tonesWatcher->disconnect(this);
            m_tonesWatcher->deleteLater();
            m_tonesWatcher = nullptr;
        }
    }
    if (!shot)
        return;
    m_preview->request(*shot, ShotImage::mediumTier);
    countTones(); // the cache may have answered at once
}

void ShotPanel::countTones()
{
    const QImage image = m_preview->image();
    const QString id = m_preview->shot().id;
    if (image.isNull() || image.cacheKey() == m_countedImage || id != m_model.selection())
        return;
    m_countedImage = image.cacheKey();
    if (m_tonesWatcher) {
        m_tonesWatcher->disconnect(this);
        m_tonesWatcher->deleteLater();
    }
    auto *watcher = new QFutureWatcher<Histogram::Counts>(this);
    m_tonesWatcher = watcher;
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, id] {
        watcher->deleteLater();
        if (watcher != m_tonesWatcher)
            return;
        m_tonesWatcher = nullptr;
        if (id == m_model.selection())
            m_histogram->setCounts(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(&m_pool, [image] { return Histogram::luminance(image); }));
}

// For tests and people.

QString ShotPanel::value(const QString &name) const
{
    const auto row = m_rows.constFind(name);
    if (row == m_rows.cend() || m_details->isHidden() || row->value->isHidden())
        return {};
    return row->value->text();
}

QString ShotPanel::checksState() const
{
    return m_details->isHidden() || m_checksState->isHidden() ? QString() : m_checksState->text();
}

std::optional<Histogram::Counts> ShotPanel::histogram() const { return m_histogram->counts(); }

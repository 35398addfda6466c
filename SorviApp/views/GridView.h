#pragma once

#include "SorviApp/views/GridCell.h"
#include "SorviKit/library/Shot.h"

#include <QAbstractScrollArea>
#include <QHash>
#include <QList>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>

class ShotImage;
class SorviModel;

/// The grid of the model's visible shots: cells of a fixed size in as many columns as
/// the width allows, drawn straight from the model (no item views, so thousands of shots
/// cost only the cells on screen). A click selects a shot in the model, a double-click
/// opens it as a single photo; when the model's selection changes the grid scrolls to it.
/// Previews come through one ShotImage per cell on screen or near it: visible cells ask
/// first, after a short pause the screens above and below follow, and cells more than two
/// screens away are dropped with their requests. The grid takes no keyboard focus: the
/// browser around it owns the keys. GUI thread; the model must outlive the grid.
class GridView : public QAbstractScrollArea {
    Q_OBJECT
public:
    /// Space around and between cells, in logical pixels (at least; spare width is shared
    /// out between the gaps).
    static constexpr int spacing = 8;

    explicit GridView(SorviModel &model, QWidget *parent = nullptr);
    ~GridView() override; ///< drops waiting requests and waits for running decodes

    /// The columns the current width holds (at least 1).
    int columns() const { return m_columns; }
    /// The number of cells: the model's visible shots.
    int count() const { return int(m_shots.size()); }
    /// What the cell at `index` shows now (index in visibleShots order).
    GridCell cell(int index) const;
    /// Where the cell at `index` lies in the viewport's coordinates (may be outside it).
    QRect cellRect(int index) const;
    /// The cell under `point` (viewport coordinates), or -1.
    int indexAt(QPoint point) const;
    /// Whether every cell now in view has its preview (or is known to have none).
    bool isScreenLoaded() const;
    /// The preview size the grid asks the loader for, in device pixels.
    int previewTier() const;

signals:
    /// The number of columns changed (after a resize).
    void columnsChanged(int columns);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    void reloadShots();
    /// Tells the model which shots the screen shows, so that they are checked first.
    void noteShotsInView(int from, int to);
    void relayout();
    void scrollToSelection();
    std::pair<int, int> rowsInView() const; ///< first and last row touching the viewport
    int rowHeight() const { return GridCell::size.height() + spacing; }
    int gap() const; ///< horizontal space between cells
    ShotImage *imageFor(int index, int priority);
    void requestNear();
    void dropFar();
    void repaintShot(const QString &id);

    SorviModel &m_model;
    QList<Shot> m_shots;          ///< the model's visibleShots, refreshed on its signal
    QStringList m_shotsInView;    ///< as last told to the model
    QHash<QString, int> m_indexOf; ///< shot id → index in m_shots
    int m_columns = 1;
    QThreadPool m_pool;
    QHash<QString, ShotImage *> m_images; ///< owned; only cells on screen or near it
    QTimer m_nearTimer;                   ///< the pause before asking for neighbouring screens
};

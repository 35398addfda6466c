#pragma once

#include "SorviKit/library/Shot.h"

#include <QAbstractScrollArea>
#include <QHash>
#include <QThreadPool>

class ShotImage;
class SorviModel;

/// A row of thumbnails of the shown photos under the single photo. A click selects a
/// photo; the strip scrolls to keep the selection in view. Only thumbnails on screen or
/// within a screen of it are loaded (the grid's small size, so they share its cache).
/// Takes no keyboard focus. GUI thread; the model must outlive it.
class Filmstrip : public QAbstractScrollArea {
    Q_OBJECT
public:
    /// One thumbnail's cell, and the strip's height, in logical pixels.
    static constexpr QSize cellSize{104, 80};
    static constexpr int stripHeight = cellSize.height() + 12;

    explicit Filmstrip(SorviModel &model, QWidget *parent = nullptr);
    ~Filmstrip() override;

    int count() const { return int(m_shots.size()); }
    /// Where the cell at `index` lies in viewport coordinates (may be outside it).
    QRect cellRect(int index) const;
    int indexAt(QPoint point) const; ///< -1 when no cell is there

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void showEvent(QShowEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    void reloadShots();
    void relayout();
    void scrollToSelection();
    void loadNear();

    SorviModel &m_model;
    QList<Shot> m_shots;
    QHash<QString, int> m_indexOf;
    QThreadPool m_pool;
    QHash<QString, ShotImage *> m_images; ///< owned; cells on screen or near it
};

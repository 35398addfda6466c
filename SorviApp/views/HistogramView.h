#pragma once

#include "SorviKit/previews/Histogram.h"

#include <QWidget>

#include <optional>

/// A picture's luminance histogram drawn as a small filled curve, black at the left and
/// white at the right; an empty frame while there are no counts. GUI thread.
class HistogramView : public QWidget {
    Q_OBJECT
public:
    explicit HistogramView(QWidget *parent = nullptr);

    /// The counts drawn now; none while the picture is on its way.
    const std::optional<Histogram::Counts> &counts() const { return m_counts; }
    void setCounts(const std::optional<Histogram::Counts> &counts);

    QSize sizeHint() const override { return {256, 64}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    std::optional<Histogram::Counts> m_counts;
};

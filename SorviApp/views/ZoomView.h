#pragma once

#include "SorviKit/library/Shot.h"

#include <QFutureWatcher>
#include <QImage>
#include <QPointF>
#include <QWidget>

class Navigator;
class ZoomScrollView;
class ZoomState;

/// A shot at 100 % and beyond: while its full-resolution picture decodes, the preview with
/// "Decoding the full-resolution picture…" over it; then the picture in a ZoomScrollView
/// with the Navigator in its corner. When the decode fails the preview stays, with a line
/// saying so. Each open() starts afresh with a new ZoomState; nothing of a previous zoom
/// survives. GUI thread.
class ZoomView : public QWidget {
    Q_OBJECT
public:
    static QString decodingText() { return QStringLiteral("Decoding the full-resolution picture…"); }
    static QString failedText() { return QStringLiteral("The full-resolution picture could not be decoded; this is the preview."); }

    explicit ZoomView(QWidget *parent = nullptr);

    /// Zooms into `shot` centred on `anchor` (fractions of the picture) at `magnification`,
    /// showing `preview` (upright, any size) until `full` (the upright full picture, null
    /// when it does not decode) has arrived.
    void open(const Shot &shot, QPointF anchor, qreal magnification, const QImage &preview, const QFuture<QImage> &full);
    /// Forgets the open shot and its picture.
    void close();

    const Shot &shot() const { return m_shot; }
    bool isDecoding() const { return m_open && !m_shown && !m_failed; }
    bool hasFailed() const { return m_failed; }
    /// Whether the full picture is on screen.
    bool isShowingFull() const { return m_shown; }
    /// The current zoom's state, scroll view and navigator (null before the first open).
    ZoomState *state() const { return m_state; }
    ZoomScrollView *scrollView() const { return m_scroll; }
    Navigator *navigator() const { return m_navigator; }

signals:
    /// A double-click in the picture.
    void zoomOutRequested();
    /// The full picture is on screen.
    void fullShown();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void showFull(const QImage &full);
    void placeNavigator();

    Shot m_shot;
    QPointF m_anchor;
    qreal m_magnification = 1;
    QImage m_preview;
    bool m_open = false;
    bool m_shown = false;
    bool m_failed = false;
    ZoomState *m_state = nullptr;
    ZoomScrollView *m_scroll = nullptr;
    Navigator *m_navigator = nullptr;
    QFutureWatcher<QImage> *m_watcher = nullptr;
};

#pragma once

#include <QThreadPool>
#include <QWidget>

class ShotImage;
class SorviModel;

/// The selected photo alone, fitted into the view, upright, with its rating badges and
/// (when shown) its check badges. While the model is zoomed the preview is shown at one
/// picture pixel per device pixel, centred on the model's zoom anchor; that is the
/// screen-sized preview, not the full-resolution picture, which belongs to a dedicated
/// zoom view. The view takes no keyboard focus. GUI thread; the model must outlive it.
class SinglePhotoView : public QWidget {
    Q_OBJECT
public:
    explicit SinglePhotoView(SorviModel &model, QWidget *parent = nullptr);
    ~SinglePhotoView() override; ///< waits for a running decode

    /// Where the picture is drawn now (empty while nothing is shown).
    QRect photoRect() const { return m_photoRect; }
    /// The picture shown or on its way, for the current selection.
    const ShotImage &image() const { return *m_image; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void refresh();
    QRect zoomedSource(const QImage &image) const;

    SorviModel &m_model;
    QThreadPool m_pool;
    ShotImage *m_image = nullptr;
    QRect m_photoRect;
};

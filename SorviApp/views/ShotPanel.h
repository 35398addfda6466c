#pragma once

#include "SorviKit/checks/Assessment.h"
#include "SorviKit/core/Rating.h"
#include "SorviKit/library/Shot.h"
#include "SorviKit/previews/Histogram.h"

#include <QFutureWatcher>
#include <QHash>
#include <QImage>
#include <QScrollArea>
#include <QThreadPool>

#include <atomic>
#include <memory>
#include <optional>

class HistogramView;
class QCheckBox;
class QGridLayout;
class QLabel;
class QToolButton;
class ShotImage;
class SorviModel;

/// The side panel beside the photos: the selected shot's capture details, buttons that
/// rate it, what the on-device checks found (with close-ups of the faces), a luminance
/// histogram and the keys. It holds no state of its own beyond the pictures it loaded: it
/// reads the model on every change and its buttons call the same model operations as the
/// keys, so they are undoable and the keys stay with the browser (no button takes focus).
/// Pictures load on the panel's own threads and only while it is visible; a picture for
/// a shot that is no longer selected is dropped. GUI thread; the model must outlive it.
class ShotPanel : public QScrollArea {
    Q_OBJECT
public:
    static constexpr int panelWidth = 280;
    static constexpr int faceSide = 96; ///< a face close-up's side in device-independent pixels

    explicit ShotPanel(SorviModel &model, QWidget *parent = nullptr);
    ~ShotPanel() override; ///< drops waiting loads and waits for running ones

    /// What the row `name` shows now ("Files", "Camera", "Focus", "Faces", "Chosen", …);
    /// empty while the row is hidden.
    QString value(const QString &name) const;
    /// The checks' state line ("Checking", "Not checked"); empty once there is a result.
    QString checksState() const;
    /// The histogram drawn now; none while the selection's preview is on its way.
    std::optional<Histogram::Counts> histogram() const;
    /// Face close-ups shown for the selection, and how many of them have their picture.
    int faceCount() const { return int(m_faceTiles.size()); }
    int loadedFaceCount() const;

protected:
    void showEvent(QShowEvent *event) override;

private:
    struct Row {
        QLabel *name = nullptr; ///< none for a line that spans the panel
        QLabel *value = nullptr;
    };
    struct FaceTile {
        QLabel *picture = nullptr;
        bool loaded = false;
    };

    QWidget *makeFacts();
    QWidget *makeRating();
    QWidget *makeChecks();
    QWidget *makeHistogram();
    QWidget *makeKeys();
    void addRow(QGridLayout *grid, const QString &name);
    void addLine(QGridLayout *grid, const QString &name);
    void setRow(const QString &name, const QString &value);

    void refresh();
    void refreshFacts(const Shot &shot);
    void refreshRating();
    void refreshChecks();
    void refreshFaces();
    void refreshHistogram();
    void loadFaces(const Shot &shot, const QList<FaceMark> &marks);
    void showFaces(const QString &id, const QList<QImage> &crops);
    void countTones();

    SorviModel &m_model;
    QLabel *m_noSelection = nullptr;
    QWidget *m_details = nullptr;
    QHash<QString, Row> m_rows;
    QList<QToolButton *> m_stars;
    QLabel *m_starCount = nullptr;
    QToolButton *m_pick = nullptr;
    QToolButton *m_reject = nullptr;
    QHash<Rating::Label, QToolButton *> m_labels;
    QCheckBox *m_autoAdvance = nullptr;
    QLabel *m_checksState = nullptr;
    QWidget *m_facesBox = nullptr;
    QGridLayout *m_facesGrid = nullptr;
    QList<FaceTile> m_faceTiles;
    HistogramView *m_histogram = nullptr;

    // Loading. The faces shown are those of (shot, marks); a new pair replaces the tiles.
    QThreadPool m_pool;
    Shot m_facesShot;
    QList<FaceMark> m_facesMarks;
    bool m_facesRequested = false;
    QFutureWatcher<QList<QImage>> *m_facesWatcher = nullptr;
    std::shared_ptr<std::atomic<bool>> m_facesCancelled;
    ShotImage *m_preview = nullptr;
    qint64 m_countedImage = 0; ///< cacheKey of the preview whose tones were last counted
    QFutureWatcher<Histogram::Counts> *m_tonesWatcher = nullptr;
};

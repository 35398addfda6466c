#pragma once

#include <QWidget>

class QFrame;
class QMimeData;
class QVBoxLayout;
class SorviModel;

/// What the window shows before a folder is open: the brand header, a drop area for a
/// folder, the recent folders and three tips. It opens nothing itself: it says which
/// folder the user chose, and the window opens it through the model. GUI thread.
class WelcomeView : public QWidget {
    Q_OBJECT
public:
    explicit WelcomeView(SorviModel &model, QWidget *parent = nullptr);

    /// The folder a drag carries: a local folder, or the folder of a local file (a photo
    /// dropped means its folder); empty when it carries neither.
    static QString droppedFolder(const QMimeData *data);

    /// Whether a folder is being dragged over the drop area (it is highlighted meanwhile).
    bool isTargeted() const { return m_targeted; }

signals:
    /// "Open Folder…" was pressed: the window shows the folder picker.
    void openFolderRequested();
    /// A folder was dropped or a connected recent folder chosen.
    void folderChosen(const QString &path);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    QWidget *makeDropArea();
    QWidget *makeTips();
    void refreshRecent();
    void setTargeted(bool targeted);

    SorviModel &m_model;
    bool m_targeted = false;
    QFrame *m_dropArea = nullptr;
    QWidget *m_recentSection = nullptr;
    QVBoxLayout *m_recentList = nullptr;
};

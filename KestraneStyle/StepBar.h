#pragma once

#include <QStringList>
#include <QWidget>

class QLabel;
class QProgressBar;

/// The row of numbered steps along the bottom of a Kestrane window: the steps of the work,
/// the current one highlighted and those before it checked off, with a one-line status
/// beside them and a small busy indicator while work runs. GUI thread.
class StepBar : public QWidget {
    Q_OBJECT
public:
    explicit StepBar(const QStringList &steps, QWidget *parent = nullptr);

    QStringList steps() const { return m_steps; }
    int current() const { return m_current; }
    QString status() const { return m_status; }
    bool isBusy() const { return m_busy; }

    void setCurrent(int index); ///< clamped to the steps
    void setStatus(const QString &status);
    void setBusy(bool busy);

    /// What a screen reader says: "Step 2 of 3: Pick. <status>".
    QString spokenDescription() const;

    /// The steps every Sorvi window shows: open a folder, pick, hand off.
    static QStringList sorviSteps();

private:
    void refresh();

    QStringList m_steps;
    int m_current = 0;
    QString m_status;
    bool m_busy = false;
    QList<QLabel *> m_stepLabels;
    QLabel *m_statusLabel = nullptr;
    QProgressBar *m_busyIndicator = nullptr;
};

#pragma once

#include <QWidget>

class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSpinBox;
class SorviModel;

/// The "Checks" page of the settings window: the thresholds soft shots and bursts are
/// marked by. A change marks the open folder's checked photos again at once from their
/// stored measurements; no photo is checked again. GUI thread.
class ChecksSettingsView : public QWidget {
    Q_OBJECT
public:
    explicit ChecksSettingsView(SorviModel &model, QWidget *parent = nullptr);

    QSpinBox *softPercent() const { return m_softPercent; }
    QDoubleSpinBox *burstGap() const { return m_burstGap; }
    QPushButton *defaultsButton() const { return m_defaults; }
    /// What the thresholds make of the open folder, e.g. "In this folder: 3 soft photos, 2 bursts".
    QString summary() const;

private:
    void showThresholds();
    void apply();

    SorviModel &m_model;
    QSpinBox *m_softPercent = nullptr;
    QDoubleSpinBox *m_burstGap = nullptr;
    QPushButton *m_defaults = nullptr;
    QLabel *m_summary = nullptr;
};

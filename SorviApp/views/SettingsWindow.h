#pragma once

#include <QDialog>

class AISettingsView;
class QTabWidget;

/// The application's settings window: one tab per subject, "AI" first. Each tab reads and
/// writes its own settings; the window only holds them. GUI thread.
class SettingsWindow : public QDialog {
    Q_OBJECT
public:
    explicit SettingsWindow(QWidget *parent = nullptr);

    AISettingsView *aiSettings() const { return m_ai; }
    /// Adds a tab after the AI tab.
    void addPage(QWidget *page, const QString &label);

private:
    QTabWidget *m_tabs = nullptr;
    AISettingsView *m_ai = nullptr;
};

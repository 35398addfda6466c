#include "SorviApp/views/SettingsWindow.h"

#include "SorviApp/views/AISettingsView.h"
#include "SorviApp/views/Symbols.h"

#include <QDialogButtonBox>
#include <QTabWidget>
#include <QVBoxLayout>

SettingsWindow::SettingsWindow(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Settings"));
    auto *column = new QVBoxLayout(this);
    m_tabs = new QTabWidget(this);
    m_ai = new AISettingsView(m_tabs);
    m_tabs->addTab(m_ai, Symbols::sparklesIcon(), QStringLiteral("AI"));
    column->addWidget(m_tabs);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    column->addWidget(buttons);
    resize(560, 520);
}

void SettingsWindow::addPage(QWidget *page, const QString &label)
{
    m_tabs->addTab(page, label);
}

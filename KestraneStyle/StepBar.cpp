#include "KestraneStyle/StepBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>

#include <algorithm>

namespace {

// Done steps are checked off, the current one stands out, later ones recede.
QString stepText(int index, const QString &name, int current)
{
    if (index < current)
        return QStringLiteral("\u2713 ") + name;
    return QStringLiteral("%1 ").arg(index + 1) + name;
}

QString stepStyle(int index, int current)
{
    if (index == current)
        return QStringLiteral("QLabel { color: palette(highlighted-text); background: palette(highlight);"
                              " border-radius: 9px; padding: 2px 10px; font-weight: 600; }");
    if (index < current)
        return QStringLiteral("QLabel { color: palette(text); padding: 2px 10px; }");
    return QStringLiteral("QLabel { color: palette(mid); padding: 2px 10px; }");
}

} // namespace

StepBar::StepBar(const QStringList &steps, QWidget *parent) : QWidget(parent), m_steps(steps)
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(12, 6, 12, 6);
    row->setSpacing(4);
    for (int i = 0; i < m_steps.size(); ++i) {
        auto *label = new QLabel(this);
        m_stepLabels << label;
        row->addWidget(label);
        if (i + 1 < m_steps.size()) {
            auto *arrow = new QLabel(QStringLiteral("\u203A"), this);
            arrow->setStyleSheet(QStringLiteral("QLabel { color: palette(mid); }"));
            row->addWidget(arrow);
        }
    }
    row->addSpacing(16);
    m_busyIndicator = new QProgressBar(this);
    m_busyIndicator->setRange(0, 0); // an indeterminate bar: work without a known end
    m_busyIndicator->setFixedSize(60, 6);
    m_busyIndicator->setTextVisible(false);
    row->addWidget(m_busyIndicator);
    m_statusLabel = new QLabel(this);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // A long status must never widen the window: it is cut at the edge instead, and shown
    // whole as the tool tip.
    m_statusLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    row->addWidget(m_statusLabel, 1);
    refresh();
}

void StepBar::setCurrent(int index)
{
    const int clamped = std::clamp(index, 0, std::max(0, int(m_steps.size()) - 1));
    if (clamped == m_current)
        return;
    m_current = clamped;
    refresh();
}

void StepBar::setStatus(const QString &status)
{
    if (status == m_status)
        return;
    m_status = status;
    refresh();
}

void StepBar::setBusy(bool busy)
{
    if (busy == m_busy)
        return;
    m_busy = busy;
    refresh();
}

QString StepBar::spokenDescription() const
{
    return QStringLiteral("Step %1 of %2: %3. %4")
        .arg(m_current + 1)
        .arg(m_steps.size())
        .arg(m_steps.value(m_current), m_status);
}

QStringList StepBar::sorviSteps()
{
    return {QStringLiteral("Open a folder"), QStringLiteral("Pick"), QStringLiteral("Hand off")};
}

void StepBar::refresh()
{
    for (int i = 0; i < m_stepLabels.size(); ++i) {
        m_stepLabels[i]->setText(stepText(i, m_steps[i], m_current));
        m_stepLabels[i]->setStyleSheet(stepStyle(i, m_current));
    }
    m_statusLabel->setText(m_status);
    m_statusLabel->setToolTip(m_status);
    m_busyIndicator->setVisible(m_busy);
    setAccessibleDescription(spokenDescription());
}

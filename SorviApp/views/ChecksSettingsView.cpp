#include "SorviApp/views/ChecksSettingsView.h"
#include "SorviApp/views/SheetParts.h"
#include "SorviKit/core/Wording.h"

#include "SorviApp/model/SorviModel.h"
#include "SorviKit/checks/CheckSettings.h"

#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cmath>

ChecksSettingsView::ChecksSettingsView(SorviModel &model, QWidget *parent) : QWidget(parent), m_model(model)
{
    auto *column = new QVBoxLayout(this);
    auto *form = new QFormLayout;

    m_softPercent = new QSpinBox(this);
    m_softPercent->setObjectName(QStringLiteral("softPercent"));
    m_softPercent->setRange(int(std::lround(CheckThresholds::minimumSoftFraction * 100)),
                            int(std::lround(CheckThresholds::maximumSoftFraction * 100)));
    m_softPercent->setSuffix(QStringLiteral(" %"));
    m_softPercent->setMaximumWidth(140);
    form->addRow(QStringLiteral("Soft below"), m_softPercent);
    form->addRow(QString(), SheetParts::secondaryText(QStringLiteral("of the shoot's typical sharpness. A higher value marks more photos soft."), this));

    m_burstGap = new QDoubleSpinBox(this);
    m_burstGap->setObjectName(QStringLiteral("burstGap"));
    m_burstGap->setRange(CheckThresholds::minimumBurstGap, CheckThresholds::maximumBurstGap);
    m_burstGap->setDecimals(1);
    m_burstGap->setSingleStep(0.1);
    m_burstGap->setSuffix(QStringLiteral(" s"));
    m_burstGap->setMaximumWidth(140);
    form->addRow(QStringLiteral("Burst gap"), m_burstGap);
    form->addRow(QString(), SheetParts::secondaryText(QStringLiteral("Frames from one camera at most this far apart form a burst."), this));
    column->addLayout(form);

    m_summary = new QLabel(this);
    m_summary->setObjectName(QStringLiteral("checksSummary"));
    column->addWidget(m_summary);
    column->addWidget(SheetParts::secondaryText(QStringLiteral("Changes apply at once to the photos already checked; nothing is checked again."), this));

    m_defaults = new QPushButton(QStringLiteral("Restore Defaults"), this);
    m_defaults->setObjectName(QStringLiteral("restoreDefaults"));
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_defaults);
    column->addLayout(buttons);
    column->addStretch();

    showThresholds();
    connect(m_softPercent, &QSpinBox::valueChanged, this, &ChecksSettingsView::apply);
    connect(m_burstGap, &QDoubleSpinBox::valueChanged, this, &ChecksSettingsView::apply);
    connect(m_defaults, &QPushButton::clicked, this, [this] { m_model.setCheckThresholds(CheckThresholds()); });
    connect(&m_model, &SorviModel::checkThresholdsChanged, this, &ChecksSettingsView::showThresholds);
    const auto refreshSummary = [this] { m_summary->setText(summary()); };
    connect(&m_model, &SorviModel::softChanged, this, refreshSummary);
    connect(&m_model, &SorviModel::burstsChanged, this, refreshSummary);
}

QString ChecksSettingsView::summary() const
{
    if (m_model.shots().isEmpty())
        return QStringLiteral("No folder is open.");
    return QStringLiteral("In this folder: %1, %2")
        .arg(Wording::counted(m_model.soft().size(), QStringLiteral("soft photo")),
             Wording::counted(m_model.burstGroups().size(), QStringLiteral("burst")));
}

void ChecksSettingsView::showThresholds()
{
    const CheckThresholds thresholds = m_model.checkThresholds();
    const QSignalBlocker softBlocker(m_softPercent), gapBlocker(m_burstGap);
    m_softPercent->setValue(int(std::lround(thresholds.softFraction * 100)));
    m_burstGap->setValue(thresholds.burstGapSeconds);
    m_defaults->setEnabled(!(thresholds == CheckThresholds()));
    m_summary->setText(summary());
}

void ChecksSettingsView::apply()
{
    m_model.setCheckThresholds({m_softPercent->value() / 100.0, m_burstGap->value()});
}

#include "SorviApp/views/SheetParts.h"

#include <QLabel>
#include <QPushButton>

namespace SheetParts {

QLabel *heading(const QString &text, QWidget *parent, const char *name, double scale)
{
    auto *label = new QLabel(text, parent);
    if (name)
        label->setObjectName(QLatin1String(name));
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setBold(true);
    label->setFont(font);
    return label;
}

QLabel *secondaryText(const QString &text, QWidget *parent, const char *name)
{
    auto *label = new QLabel(text, parent);
    if (name)
        label->setObjectName(QLatin1String(name));
    label->setWordWrap(true);
    QPalette palette = label->palette();
    for (const QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled})
        palette.setColor(group, QPalette::WindowText, palette.color(QPalette::Active, QPalette::PlaceholderText));
    label->setPalette(palette);
    return label;
}

QLabel *failureText(QWidget *parent, const char *name)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QLatin1String(name));
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, QColor(0xC0, 0x30, 0x20));
    label->setPalette(palette);
    return label;
}

QPushButton *button(const QString &text, QWidget *parent, const char *name)
{
    auto *pushButton = new QPushButton(text, parent);
    pushButton->setObjectName(QLatin1String(name));
    pushButton->setAutoDefault(false);
    return pushButton;
}

} // namespace SheetParts

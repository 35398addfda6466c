#pragma once

class QLabel;
class QPushButton;
class QString;
class QWidget;

/// The small pieces the sheets and settings pages are built from, so that they look and
/// behave alike.
namespace SheetParts {

/// The size of a sheet's title against the text around it.
inline constexpr double titleScale = 1.3;

/// Bold text: a heading, `scale` times the size of the text around it.
QLabel *heading(const QString &text, QWidget *parent, const char *name = nullptr, double scale = 1.0);
/// Wrapped secondary text, the same grey whether or not its sheet is busy.
QLabel *secondaryText(const QString &text, QWidget *parent, const char *name = nullptr);
/// Wrapped, selectable text in the red of a failure.
QLabel *failureText(QWidget *parent, const char *name);
/// A push button that Return does not press unless it is made the default.
QPushButton *button(const QString &text, QWidget *parent, const char *name);

} // namespace SheetParts

#pragma once

#include <QIcon>

/// The few symbols the views draw for themselves.
namespace Symbols {
QIcon chevronIcon();  ///< back to the grid
QIcon wandIcon();     ///< the checks
QIcon handOffIcon();  ///< a tray with an arrow leaving it
QIcon sparklesIcon(); ///< Ask an AI
} // namespace Symbols

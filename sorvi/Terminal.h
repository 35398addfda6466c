#pragma once

#include "SorviKit/core/Wording.h"

#include <QString>

/// Output helpers shared by the subcommands.
namespace Terminal {

bool stderrIsTerminal();
void printOut(const QString &text); ///< stdout, UTF-8, no newline added
void printErr(const QString &text); ///< stderr, UTF-8, no newline added
/// "LABEL [#########---------------------] 30%" for a fraction 0…1 of long work.
QString progressBar(const QString &label, double fraction);

/// One status line on stderr, rewritten in place while long work runs; shown only when
/// stderr is a terminal, so scripts and pipes get clean output. Cleared when destroyed.
class ProgressLine {
public:
    ProgressLine() = default;
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;
    ~ProgressLine() { clear(); }

    void show(const QString &text);
    void clear();

private:
    bool m_shown = false;
};

} // namespace Terminal

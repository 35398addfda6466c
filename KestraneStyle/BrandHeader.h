#pragma once

#include <QWidget>

class QHBoxLayout;

/// The header of a Kestrane window: the product's mark and title, a subtitle, and any
/// widget at the right end. GUI thread.
class BrandHeader : public QWidget {
    Q_OBJECT
public:
    BrandHeader(const QString &title, const QString &subtitle, QWidget *parent = nullptr);

    /// Shows `trailing` at the right end (the header takes ownership); nullptr removes it.
    void setTrailing(QWidget *trailing);

private:
    QHBoxLayout *m_row = nullptr;
    QWidget *m_trailing = nullptr;
};

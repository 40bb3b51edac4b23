#pragma once

#include <QLabel>

/// A label with a ground of its own, which goes together with its text. The ground is painted
/// before any paint event, so without a text there is no room for it.
class PillLabel : public QLabel
{
public:
    using QLabel::QLabel;

    QSize sizeHint() const override { return fitted(QLabel::sizeHint()); }
    QSize minimumSizeHint() const override { return fitted(QLabel::minimumSizeHint()); }

private:
    QSize fitted(QSize hint) const { return text().isEmpty() ? QSize(0, hint.height()) : hint; }
};

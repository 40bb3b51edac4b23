#pragma once

#include <QLabel>

/// A label for plain text that shows one line of it: what does not fit ends in "…" and is told as a
/// whole by the tool tip. text() stays as it was set.
class ElidedLabel : public QLabel
{
public:
    using QLabel::QLabel;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QString shownText() const;
};

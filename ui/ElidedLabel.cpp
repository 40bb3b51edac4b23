#include "ui/ElidedLabel.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

// A tool tip is to tell the whole text. But it cannot scroll, and a window of its own keeps all of
// it in memory as a picture: what is higher than several screens is cut, and ends in "…".
constexpr qsizetype kToolTipLimit = 20'000; // characters; as much as the window puts into a label
constexpr qsizetype kToolTipLines = 250;
constexpr qsizetype kLongWord = 60; // characters; still fits in the tool tip's width

/// With places in endless words where a line may end.
QString breakable(const QString &text)
{
    constexpr QChar kZeroWidthSpace(0x200b);
    QString broken;
    qsizetype word = 0;
    for (const QChar c : text) {
        if (word >= kLongWord && !c.isSpace() && !c.isLowSurrogate()) {
            broken += kZeroWidthSpace;
            word = 0;
        }
        word = c.isSpace() ? 0 : word + 1;
        broken += c;
    }
    return broken;
}

/// All that is worth telling.
QString toTell(const QString &text)
{
    qsizetype end = -1;
    for (qsizetype lines = 0; lines < kToolTipLines; ++lines) {
        end = text.indexOf(u'\n', end + 1);
        if (end < 0)
            break;
    }
    if (end < 0)
        end = text.size();
    end = std::min(end, kToolTipLimit);
    return end < text.size() ? text.left(end) + u'…' : text;
}

/// Plain text is neither broken into lines nor safe from being taken for HTML. The colour is named
/// because the tool tip of a widget takes over the style sheet of that widget.
QString asToolTip(const QString &text)
{
    return u"<p style='white-space: pre-wrap; color: %1'>%2</p>"_s.arg(
        QToolTip::palette().color(QPalette::ToolTipText).name(),
        breakable(toTell(text)).toHtmlEscaped());
}

} // namespace

bool ElidedLabel::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip)
        setToolTip(shownText() == text() ? QString() : asToolTip(text()));
    return QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent *event)
{
    const QString shown = shownText();
    if (shown == text()) {
        QLabel::paintEvent(event);
        return;
    }
    QPainter painter(this);
    style()->drawItemText(&painter, contentsRect(), int(alignment()), palette(), isEnabled(), shown,
                          foregroundRole());
}

QString ElidedLabel::shownText() const
{
    QString line = text();
    if (const qsizetype end = line.indexOf(u'\n'); end >= 0)
        line = line.left(end).trimmed() + u'…';
    return fontMetrics().elidedText(line, Qt::ElideRight, contentsRect().width());
}

#include "ui/ElidedLabel.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

using namespace Qt::Literals::StringLiterals;

namespace {

// Characters: some thirty lines, and a word that still fits in the tool tip's width.
constexpr qsizetype kToolTipLimit = 2000;
constexpr qsizetype kLongWord = 60;

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

/// Plain text is neither broken into lines nor safe from being taken for HTML. The colour is named
/// because the tool tip of a widget takes over the style sheet of that widget.
QString asToolTip(const QString &text)
{
    const QString shown = text.size() > kToolTipLimit ? text.left(kToolTipLimit) + u'…' : text;
    return u"<p style='white-space: pre-wrap; color: %1'>%2</p>"_s.arg(
        QToolTip::palette().color(QPalette::ToolTipText).name(), breakable(shown).toHtmlEscaped());
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

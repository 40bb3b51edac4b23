#include "publish/Progress.h"

#include <QTextStream>

#include <algorithm>
#include <cstdio>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kBarWidth = 30;
constexpr int kLineEvery = 10; // per cent

bool errorsGoToTerminal()
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

} // namespace

Progress::Progress(const QString &label, qint64 total)
    : m_label(label)
    , m_total(total)
    , m_isTerminal(errorsGoToTerminal())
{
}

Progress::~Progress()
{
    if (m_isTerminal && m_shown >= 0)
        QTextStream(stderr) << u'\n';
}

void Progress::advance(qint64 amount)
{
    const std::lock_guard lock(m_mutex);
    m_done += amount;
    const int percent =
        m_total > 0 ? static_cast<int>(std::min(m_done, m_total) * 100 / m_total) : 100;
    const int step = m_isTerminal ? 1 : kLineEvery;
    const int shown = percent / step * step;
    if (shown > m_shown)
        show(shown);
}

void Progress::show(int percent)
{
    m_shown = percent;
    QTextStream stream(stderr);
    if (!m_isTerminal) {
        stream << u"%1 : %2 %\n"_s.arg(m_label).arg(percent);
        return;
    }
    const qsizetype filled = qsizetype{percent} * kBarWidth / 100;
    stream << u"\r%1 [%2%3] %4 %"_s
                  .arg(m_label, QString(filled, u'#'), QString(kBarWidth - filled, u'.'))
                  .arg(percent, 3);
}

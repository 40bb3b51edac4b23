#include "tests/support/Desktop.h"

using namespace Qt::Literals::StringLiterals;

Desktop::Desktop()
{
    // What openbox starts once it manages the windows.
    const auto startup = u"sh -c 'echo \"$DISPLAY\"'"_s;
    m_process.start(QStringLiteral(VEYRA_WITH_DISPLAY),
                    {u"1280x1024x24"_s, u"openbox"_s, u"--sm-disable"_s, u"--startup"_s, startup});
    // It may have remarks of its own.
    while (m_display.isEmpty() && (m_process.canReadLine() || m_process.waitForReadyRead())) {
        const QByteArray line = m_process.readLine().trimmed();
        if (line.startsWith(':'))
            m_display = QString::fromLatin1(line);
    }
}

Desktop::~Desktop()
{
    m_process.terminate();
    m_process.waitForFinished();
}

QString Desktop::property(qint64 windowId, const QString &name) const
{
    QProcess reader;
    reader.start(u"xprop"_s, {u"-display"_s, m_display, u"-notype"_s, u"-id"_s,
                              QString::number(windowId), name});
    reader.waitForFinished();
    const QString line = QString::fromUtf8(reader.readAllStandardOutput());
    return line.section(u'=', 1).trimmed();
}

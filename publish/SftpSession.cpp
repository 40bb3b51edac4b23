#include "publish/SftpSession.h"

#include "publish/Interruption.h"
#include "publish/Outcome.h"

#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <chrono>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#endif

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// Does nothing but answer, after everything before it is done.
const auto kMark = u"version"_s;
constexpr qsizetype kLongestCommand = 2000; ///< bytes; sftp cuts at 2048 without a word
constexpr std::chrono::milliseconds kLookForInterruption = 100ms;
constexpr std::chrono::milliseconds kFarewell = 1s;

bool isMark(const QString &line)
{
    static const QRegularExpression kForm(u"^SFTP protocol version [0-9]+$"_s);
    return kForm.match(line).hasMatch();
}

bool isEcho(const QString &line)
{
    return line.startsWith("sftp> "_L1);
}

QString programPath()
{
    QString path = QStandardPaths::findExecutable(u"sftp"_s);
    if (path.isEmpty()) {
        throw Problem{Outcome::Disk, u"Le programme « sftp » manque ; sous Debian : "
                                     u"apt-get install openssh-client."_s};
    }
    return path;
}

} // namespace

SftpSession::SftpSession(const QString &host, int port)
{
    QStringList arguments{u"-b"_s, u"-"_s};
    for (const QString &option : {u"BatchMode=yes"_s, u"ConnectTimeout=15"_s,
                                  u"ServerAliveInterval=15"_s, u"ServerAliveCountMax=4"_s})
        arguments += {u"-o"_s, option};
    if (port > 0)
        arguments += {u"-P"_s, QString::number(port)};
    start(programPath(), arguments + QStringList{u"--"_s, host});
    try {
        run({}); // an empty command does nothing
    } catch (const Problem &problem) {
        if (problem.outcome != Outcome::Disk)
            throw;
        throw Problem{Outcome::Unreachable,
                      u"%1 ne répond pas, ou ne nous laisse pas entrer : %2 (« sftp %1 » doit "
                      u"marcher sans rien demander)"_s.arg(host, problem.text)};
    }
}

SftpSession::~SftpSession()
{
    m_process.closeWriteChannel();
    if (m_process.waitForFinished(static_cast<int>(kFarewell.count())))
        return;
    m_process.kill();
    m_process.waitForFinished();
}

void SftpSession::start(const QString &program, const QStringList &arguments)
{
    // Names and months as they are read below.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    m_process.setProcessEnvironment(environment);
#ifdef Q_OS_LINUX
    // If this program is killed, nobody goes on writing there behind the back of the next one.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
#endif
    m_process.start(program, arguments);
}

QStringList SftpSession::run(const QString &command)
{
    if (command.toUtf8().size() > kLongestCommand)
        throw Problem{Outcome::Disk, u"Nom trop long pour sftp : %1."_s.arg(command)};
    m_process.write(command.toUtf8() + '\n' + kMark.toUtf8() + '\n');
    QStringList lines;
    for (;;) {
        while (m_process.canReadLine()) {
            QString line = QString::fromUtf8(m_process.readLine());
            line.chop(1);
            if (isMark(line))
                return lines;
            if (!isEcho(line))
                lines.append(line);
        }
        Interruption::check(); // first: Ctrl+C ends sftp too
        if (m_process.state() == QProcess::NotRunning)
            throw Problem{Outcome::Disk, lastWords()};
        m_process.waitForReadyRead(static_cast<int>(kLookForInterruption.count()));
    }
}

QString SftpSession::quoted(const QString &name)
{
    static const QRegularExpression kUnwritable(u"[\"\\\\\\x00-\\x1f\\x7f]"_s);
    if (name.contains(kUnwritable)) {
        throw Problem{Outcome::Refused,
                      u"« %1 » ne peut pas être envoyé par sftp : « \" », « \\ » ou un caractère "
                      u"de contrôle dans le nom."_s.arg(name)};
    }
    return u'"' + name + u'"';
}

/// What sftp and ssh had to say, without what servers greet with.
QString SftpSession::lastWords()
{
    const QString text = QString::fromUtf8(m_process.readAllStandardError());
    const QStringList lines = text.split(QRegularExpression(u"[\r\n]+"_s), Qt::SkipEmptyParts);
    constexpr qsizetype kLines = 2;
    const QStringList last = lines.mid(std::max<qsizetype>(0, lines.size() - kLines));
    return last.isEmpty() ? u"la connexion est perdue."_s : last.join(u" ; "_s);
}

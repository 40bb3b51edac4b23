#include "publish/SftpSession.h"

#include "publish/FaultPoints.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// Does nothing but answer, after everything before it is done.
const auto kMark = u"version"_s;
constexpr qsizetype kLongestCommand = 2000; ///< bytes; sftp cuts at 2048 without a word
constexpr std::chrono::milliseconds kFirstAnswer = 30s;
constexpr std::chrono::milliseconds kAnswer = 60s;
constexpr std::chrono::milliseconds kSilenceWithinFile = 5min;
constexpr std::chrono::milliseconds kForever = std::chrono::milliseconds::max();
constexpr std::chrono::milliseconds kLookForInterruption = 100ms;
constexpr std::chrono::milliseconds kComingToRest = 3s;
constexpr std::chrono::milliseconds kFarewell = 1s;
constexpr int kRefused = 1; ///< the exit code of sftp after a command that failed

bool isMark(const QString &line)
{
    static const QRegularExpression kForm(u"^SFTP protocol version [0-9]+$"_s);
    return kForm.match(line).hasMatch();
}

bool isEcho(const QString &line)
{
    return line.startsWith("sftp> "_L1);
}

/// How much a program has written since it began, to files and to others: of a transfer hardly more
/// than its bytes. Nothing where the system does not tell.
qint64 writtenBy(qint64 processId)
{
    static const QRegularExpression kForm(u"\\bwchar: ([0-9]+)"_s);
    QFile file(u"/proc/%1/io"_s.arg(processId));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return kForm.match(QString::fromLatin1(file.readAll())).captured(1).toLongLong();
}

/// As the terminal's Ctrl+C would: sftp stops within a file then, and goes on with what is asked.
void interrupt(const QProcess &process)
{
#ifdef Q_OS_UNIX
    if (process.processId() > 0)
        ::kill(static_cast<pid_t>(process.processId()), SIGINT);
#else
    Q_UNUSED(process)
#endif
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
        exchange({}, kFirstAnswer, [](qint64) {}); // an empty command does nothing
    } catch (const Problem &problem) {
        if (problem.outcome == Outcome::Interrupted)
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
    m_process.setChildProcessModifier([] {
        // If this program is killed, nobody goes on writing there behind the back of the next one.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        // The terminal's Ctrl+C is this program's to deal with.
        ::setsid();
    });
#endif
    m_process.start(program, arguments);
}

QStringList SftpSession::run(const QString &commands)
{
    return exchange(commands, kAnswer, [](qint64) {});
}

void SftpSession::transfer(const QString &command, const std::function<void(qint64)> &moved)
{
    const bool isTold = writtenBy(m_process.processId()) > 0;
    exchange(command, isTold ? kSilenceWithinFile : kForever, moved);
}

QStringList SftpSession::exchange(const QString &commands, std::chrono::milliseconds usualPatience,
                                  const std::function<void(qint64)> &moved)
{
    const QStringList separate = commands.split(u'\n');
    for (const QString &command : separate) {
        if (command.toUtf8().size() > kLongestCommand)
            throw Problem{Outcome::Disk, u"Nom trop long pour sftp : %1."_s.arg(command)};
    }
    m_process.readAllStandardError(); // complaints that counted for nothing
    m_process.write(commands.toUtf8() + '\n' + kMark.toUtf8() + '\n');
    const bool isForever = usualPatience == kForever;
    const std::chrono::milliseconds patience = PublishFaultPoints::patience(usualPatience);
    QDeadlineTimer deadline(isForever ? QDeadlineTimer(QDeadlineTimer::Forever)
                                      : QDeadlineTimer(patience));
    qint64 written = writtenBy(m_process.processId());
    QStringList lines;
    while (!takeLines(lines)) {
        if (Interruption::isDue())
            comeToRest();
        Interruption::check();
        if (m_process.state() == QProcess::NotRunning)
            throw ended();
        if (deadline.hasExpired()) {
            giveUp();
            throw Problem{Outcome::Unreachable, u"aucune réponse en %1 s."_s.arg(patience / 1s)};
        }
        m_process.waitForReadyRead(static_cast<int>(kLookForInterruption.count()));
        const qint64 before = std::exchange(written, writtenBy(m_process.processId()));
        moved(std::max<qint64>(0, written - before));
        if (written != before && !isForever)
            deadline.setRemainingTime(patience);
    }
    return lines;
}

/// Whether all that was asked is answered.
bool SftpSession::takeLines(QStringList &lines)
{
    while (m_process.canReadLine()) {
        QString line = QString::fromUtf8(m_process.readLine());
        line.chop(1);
        if (isMark(line))
            return true;
        if (!isEcho(line))
            lines.append(line);
    }
    return false;
}

/// What is under way ends early, so that what is asked next, to leave nothing behind, has an answer
/// of its own.
void SftpSession::comeToRest()
{
    interrupt(m_process);
    const QDeadlineTimer deadline(kComingToRest);
    QStringList rest;
    while (!takeLines(rest)) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning) {
            giveUp();
            return;
        }
        m_process.waitForReadyRead(static_cast<int>(kLookForInterruption.count()));
    }
}

/// A late answer would be taken for another command's.
void SftpSession::giveUp()
{
    m_process.kill();
    m_process.waitForFinished();
}

/// By itself it ends after a command that failed, or else because nobody is there any more.
Problem SftpSession::ended()
{
    const bool isRefused =
        m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == kRefused;
    return {isRefused ? Outcome::Disk : Outcome::Unreachable, lastWords()};
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

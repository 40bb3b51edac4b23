#include "app/SingleInstance.h"

#include "config/ProcessLock.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kPatience = kLongestEnd + 1s;

constexpr char kShown[] = "shown\n";

#ifdef Q_OS_LINUX
// Without a file, which a crash would leave behind, and whose path may get too long.
constexpr auto kServerOption = QLocalServer::AbstractNamespaceOption;
constexpr auto kSocketOption = QLocalSocket::AbstractNamespaceOption;
#else
constexpr auto kServerOption = QLocalServer::UserAccessOption;
constexpr auto kSocketOption = QLocalSocket::NoOptions;
#endif

/// However the folder was written: over a link, or with other capitals on Windows.
QString canonical(const QString &folder)
{
    QString path = QFileInfo(folder).canonicalFilePath();
#ifdef Q_OS_WIN
    return path.toCaseFolded();
#else
    return path;
#endif
}

QString existing(const QString &folder)
{
    QDir().mkpath(folder);
    return folder;
}

QString nameFor(const QString &settingsFolder, const QString &installationFolder)
{
    const QString folders = canonical(settingsFolder) + u'\n' + canonical(installationFolder);
    const QByteArray hash =
        QCryptographicHash::hash(folders.toUtf8(), QCryptographicHash::Sha256).toHex();
    return "launcher-"_L1 + QLatin1StringView(hash.left(32));
}

/// Windows lets a process come to the front that the player has just started, and none of its own
/// accord: the right is handed over.
void letComeToFront(qint64 processId)
{
#ifdef Q_OS_WIN
    AllowSetForegroundWindow(DWORD(processId));
#else
    Q_UNUSED(processId)
#endif
}

void bringUp(QWidget *window)
{
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->raise();
    window->activateWindow();
}

/// What the player has to answer first comes to the front with the window and has the keyboard.
void bringUpDialogOver(QWidget *window)
{
    QWidget *const dialog = QApplication::activeModalWidget();
    if (!dialog)
        return;
    if (!dialog->testAttribute(Qt::WA_DontShowOnScreen)) {
        bringUp(dialog);
        return;
    }
    // The system shows a dialog of its own in its place, which Windows must be told of.
#ifdef Q_OS_WIN
    SetForegroundWindow(GetLastActivePopup(reinterpret_cast<HWND>(window->winId())));
#else
    Q_UNUSED(window)
#endif
}

int millisecondsLeft(const QDeadlineTimer &deadline)
{
    return int(deadline.remainingTime());
}

} // namespace

SingleInstance::SingleInstance(const QString &settingsFolder, const QString &installationFolder)
    : m_name(nameFor(existing(settingsFolder), installationFolder))
    , m_lock(settingsFolder + u'/' + m_name + ".lock"_L1)
{
    m_lock.setStaleLockTime(0);
}

bool SingleInstance::isShownByAnother()
{
    if (m_lock.tryLock(0)) {
        listen();
        return false;
    }

    const QDeadlineTimer deadline(kPatience);
    while (m_lock.error() == QLockFile::LockFailedError && !deadline.hasExpired()) {
        if (askFirst(deadline))
            return true;
        if (ProcessLock::take(m_lock)) {
            listen();
            return false;
        }
    }
    return false;
}

void SingleInstance::listen()
{
    QObject::connect(&m_server, &QLocalServer::newConnection, &m_server,
                     [this] { answerOthers(); });
    m_server.setSocketOptions(kServerOption);
    m_server.listen(m_name);
}

/// To connect is to ask. Who gets no answer tries again, until this process has ended or the
/// other's patience has.
void SingleInstance::answerOthers()
{
    while (QLocalSocket *other = m_server.nextPendingConnection()) {
        QObject::connect(other, &QLocalSocket::disconnected, other, &QObject::deleteLater);
        if (bringToFront())
            other->write(kShown);
        else
            other->disconnectFromServer();
    }
}

bool SingleInstance::askFirst(const QDeadlineTimer &deadline)
{
    qint64 processId = 0;
    if (m_lock.getLockInfo(&processId, nullptr, nullptr))
        letComeToFront(processId);

    QLocalSocket first;
    first.setSocketOptions(kSocketOption);
    first.connectToServer(m_name);
    return first.waitForConnected(millisecondsLeft(deadline)) &&
           first.waitForReadyRead(millisecondsLeft(deadline)) && first.readAll() == kShown;
}

/// False when there is no window any more. What is open above it stays there.
bool SingleInstance::bringToFront()
{
    QWidget *const ours = m_window;
    if (!ours || !ours->isVisible())
        return false;

    bringUp(ours);
    bringUpDialogOver(ours);
    return true;
}

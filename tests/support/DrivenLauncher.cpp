#include "tests/support/DrivenLauncher.h"

#include "tests/support/Desktop.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTcpSocket>
#include <QTest>
#include <QUuid>

#include <filesystem>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kStartTimeout = 60s;
constexpr auto kAnswerTimeout = 60s;
constexpr auto kStatePause = 10ms;
constexpr auto kCollectTimeout = 10s;

// Texts without numbered placeholders go through QString::arg() on purpose; the offscreen platform
// knows no size hints, nor one window above another; a closed window kills the unpacking program;
// what counts the lines that are reached cannot write its counts to a full disk either.
constexpr QByteArrayView kKnownRemarks[] = {
    "QString::arg: ",
    "This plugin does not support propagateSizeHints()",
    "This plugin does not support raise()",
    "QStandardPaths: XDG_RUNTIME_DIR not set",
    "QProcess: Destroyed while process (\"powershell\") is still running.",
    "QProcess: Destroyed while process (\"unzip\") is still running.",
    "libgcov profiling error:",
};

template <typename Condition> bool waitFor(Condition condition, std::chrono::milliseconds timeout)
{
    return QTest::qWaitFor(condition, int(timeout.count()));
}

bool isKnownRemark(const QByteArray &line)
{
    return std::any_of(std::begin(kKnownRemarks), std::end(kKnownRemarks),
                       [&line](QByteArrayView remark) { return line.startsWith(remark); });
}

/// Of the same content in another folder; a link where the file system has them.
void placeExecutable(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::create_hard_link(from.toStdU16String(), to.toStdU16String(), error);
    if (error && !QFile::copy(from, to))
        qFatal("Cannot place %s", qPrintable(to));
}

} // namespace

DrivenLauncher::DrivenLauncher(const HttpServer &server)
    // Beside the tests, so that the executable can be linked.
    : m_folder(std::make_shared<QTemporaryDir>(QCoreApplication::applicationDirPath() +
                                               u"/run-XXXXXX"_s))
    , m_environment(QProcessEnvironment::systemEnvironment())
{
    const QString program = Platform::executableName(u"veyra_driven_launcher"_s);
    placeExecutable(QCoreApplication::applicationDirPath() + u"/../veyra_driven_launcher/"_s +
                        program,
                    executable());

    QDir(QFileInfo(configFile()).path()).removeRecursively();
    for (const QString &name : {u"data"_s, u"config"_s, u"cache"_s, u"tmp"_s})
        QDir().mkpath(folder() + u'/' + name);
    m_environment.insert(u"XDG_DATA_HOME"_s, folder() + u"/data"_s);
    m_environment.insert(u"XDG_CONFIG_HOME"_s, folder() + u"/config"_s);
    m_environment.insert(u"XDG_CACHE_HOME"_s, folder() + u"/cache"_s);
    for (const QString &variable : {u"TMPDIR"_s, u"TEMP"_s, u"TMP"_s})
        m_environment.insert(variable, folder() + u"/tmp"_s);
    m_environment.insert(u"VEYRA_TEST_PROXY_PORT"_s, QString::number(server.port()));
    listen();
}

DrivenLauncher::DrivenLauncher(const std::shared_ptr<QTemporaryDir> &folder,
                               const QProcessEnvironment &environment)
    : m_folder(folder)
    , m_environment(environment)
{
    listen();
}

void DrivenLauncher::listen()
{
    if (!m_control.listen(QHostAddress::LocalHost))
        qFatal("No loopback port: %s", qPrintable(m_control.errorString()));
    connect(&m_control, &QTcpServer::newConnection, this,
            [this] { m_connection = m_control.nextPendingConnection(); });
    m_environment.insert(u"VEYRA_TEST_CONTROL_PORT"_s, QString::number(m_control.serverPort()));

    const QString name = u"VEYRA_TEST_RUN"_s;
    const QString run = QUuid::createUuid().toString(QUuid::WithoutBraces);
    m_environment.insert(name, run);
    m_mark = (name + u'=' + run).toLatin1();
}

DrivenLauncher::~DrivenLauncher()
{
    if (isRunning())
        kill();
}

QString DrivenLauncher::executable() const
{
    return folder() + u'/' + Platform::executableName(u"VeyraLauncher"_s);
}

QString DrivenLauncher::clientFolder() const
{
    return folder() + u"/Client"_s;
}

QString DrivenLauncher::configFile() const
{
    return Platform::settingsFolder(folder() + u"/data"_s) + u"/config.json"_s;
}

void DrivenLauncher::showOn(const Desktop &desktop)
{
    m_environment.insert(u"DISPLAY"_s, desktop.display());
    m_environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
}

bool DrivenLauncher::start()
{
    launch();
    if (waitFor([this] { return !m_connection.isNull() || !isRunning(); }, kStartTimeout) &&
        m_connection)
        return true;
    qWarning("It did not come up: %s, exit code %d, %s", isRunning() ? "running" : "ended",
             m_process.exitCode(), m_process.readAllStandardError().constData());
    return false;
}

void DrivenLauncher::launch()
{
    m_connection.clear();
    m_process.setProcessEnvironment(m_environment);
    m_process.setWorkingDirectory(folder());
    Platform::start(m_process, executable());
}

void DrivenLauncher::kill()
{
    m_process.kill();
    m_process.waitForFinished();
}

QJsonObject DrivenLauncher::ask(const QString &command, const QJsonObject &details)
{
    if (!m_connection)
        return {};
    QJsonObject message = details;
    message[u"command"_s] = command;
    m_connection->write(QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n');
    const bool answered =
        waitFor([this] { return !m_connection || m_connection->canReadLine() || !isRunning(); },
                kAnswerTimeout);
    if (!answered || !m_connection)
        return {};
    return QJsonDocument::fromJson(m_connection->readLine()).object();
}

bool DrivenLauncher::waitForState(const std::function<bool(const QJsonObject &)> &condition,
                                  std::chrono::milliseconds timeout)
{
    QElapsedTimer elapsed;
    elapsed.start();
    QJsonObject last;
    while (isRunning() && elapsed.elapsed() < timeout.count()) {
        last = state();
        if (condition(last))
            return true;
        QTest::qWait(int(kStatePause.count()));
    }
    qWarning("The last state was %s", QJsonDocument(last).toJson().constData());
    return false;
}

bool DrivenLauncher::waitForLabel(const QString &text)
{
    return waitForState(
        [&text](const QJsonObject &state) { return state["label"_L1].toString() == text; });
}

bool DrivenLauncher::waitForEnd(std::chrono::milliseconds timeout)
{
    return waitFor([this] { return !isRunning(); }, timeout);
}

QString DrivenLauncher::faultsOfItsEnd(int exitCode)
{
    QStringList faults;
    if (isRunning())
        faults.append(u"still running"_s);
    if (m_process.exitStatus() != QProcess::NormalExit)
        faults.append(u"crashed"_s);
    if (m_process.exitCode() != exitCode)
        faults.append(u"exit code %1"_s.arg(m_process.exitCode()));
    for (const QByteArray &line : m_process.readAllStandardError().split('\n')) {
        if (!line.trimmed().isEmpty() && !isKnownRemark(line))
            faults.append(u"on the standard error: %1"_s.arg(QString::fromUtf8(line)));
    }
    // A killed child may take a moment until it is really gone.
    if (!waitFor([this] { return Platform::processesWithEnvironment(m_mark).isEmpty(); },
                 kCollectTimeout))
        faults.append(u"left processes behind"_s);
    return faults.join(u'\n');
}

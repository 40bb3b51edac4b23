#include "tests/support/Platform.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>

#ifdef Q_OS_WIN
#include <windows.h>
#elif defined(Q_OS_LINUX)
#include <sched.h>
#endif

using namespace Qt::Literals::StringLiterals;

QString Platform::executableName(const QString &name)
{
#ifdef Q_OS_WIN
    return name + u".exe"_s;
#else
    return name;
#endif
}

QString Platform::searchPathWith(const QString &folder)
{
    return QDir::toNativeSeparators(folder) + QDir::listSeparator() + qEnvironmentVariable("PATH");
}

QString Platform::reasonToSkipResets()
{
    return isWine() ? u"Wine does not always report that a connection was reset"_s : QString();
}

bool Platform::start(QProcess &process, const QString &program, const QStringList &arguments)
{
    constexpr int kMostStarts = 3;
    for (int starts = 0; starts < (isWine() ? kMostStarts : 1); ++starts) {
        process.start(program, arguments);
        if (process.waitForStarted())
            return true;
    }
    return false;
}

#ifdef Q_OS_WIN

QString Platform::settingsFolder(const QString &)
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

bool Platform::isRunning(qint64 processId)
{
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, DWORD(processId));
    if (!process)
        return false;
    const bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return running;
}

bool Platform::hasLoadedTls()
{
    return GetModuleHandleW(L"qschannelbackend.dll") || GetModuleHandleW(L"qopensslbackend.dll");
}

bool Platform::hasOpen(const QString &path)
{
    // Nobody can have it alone while somebody has it.
    const HANDLE file = CreateFileW(reinterpret_cast<const wchar_t *>(path.utf16()), GENERIC_READ,
                                    0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION;
    CloseHandle(file);
    return false;
}

bool Platform::isWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

QList<qint64> Platform::processesWithEnvironment(const QByteArray &)
{
    return {};
}

#else

QString Platform::settingsFolder(const QString &dataHome)
{
    return dataHome + u"/Veyra/Veyra Launcher"_s;
}

bool Platform::isRunning(qint64 processId)
{
    QFile status(u"/proc/%1/stat"_s.arg(processId));
    if (!status.open(QIODevice::ReadOnly))
        return false;
    // "pid (name) state ...": the name may hold anything, blanks and brackets included.
    const QByteArray line = status.readAll();
    return line.mid(line.lastIndexOf(')') + 2, 1) != "Z";
}

bool Platform::hasLoadedTls()
{
    QFile maps(u"/proc/self/maps"_s);
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("qopensslbackend");
}

bool Platform::hasOpen(const QString &path)
{
    const QString file = QFileInfo(path).canonicalFilePath();
    const QDir descriptors(u"/proc/self/fd"_s);
    const QStringList names = descriptors.entryList(QDir::AllEntries | QDir::System);
    return std::any_of(names.cbegin(), names.cend(), [&](const QString &name) {
        return QFile::symLinkTarget(descriptors.filePath(name)) == file;
    });
}

bool Platform::isWine()
{
    return false;
}

QList<qint64> Platform::processesWithEnvironment(const QByteArray &entry)
{
    QList<qint64> found;
    for (const QString &name : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isNumber = false;
        const qint64 processId = name.toLongLong(&isNumber);
        if (!isNumber)
            continue;
        QFile environment(u"/proc/%1/environ"_s.arg(processId));
        if (environment.open(QIODevice::ReadOnly) &&
            environment.readAll().split('\0').contains(entry))
            found.append(processId);
    }
    return found;
}

#endif

#ifdef Q_OS_LINUX

Platform::OneProcessor::OneProcessor()
    : m_before(sizeof(cpu_set_t), Qt::Uninitialized)
{
    auto *before = reinterpret_cast<cpu_set_t *>(m_before.data());
    if (sched_getaffinity(0, sizeof(cpu_set_t), before) != 0)
        qFatal("Cannot ask for the processors");
    int first = 0;
    while (!CPU_ISSET(first, before))
        ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    if (sched_setaffinity(0, sizeof(one), &one) != 0)
        qFatal("Cannot keep to one processor");
}

Platform::OneProcessor::~OneProcessor()
{
    sched_setaffinity(0, sizeof(cpu_set_t), reinterpret_cast<cpu_set_t *>(m_before.data()));
}

#else

Platform::OneProcessor::OneProcessor() = default;
Platform::OneProcessor::~OneProcessor() = default;

#endif

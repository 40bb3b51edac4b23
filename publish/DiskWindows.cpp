#include "publish/Disk.h"
#include "publish/Outcome.h"

#include <QDir>
#include <QFile>

#include <windows.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype kLongestTarget = 1024; ///< bytes

class Handle
{
public:
    explicit Handle(const QString &path)
        : m_handle(::CreateFileW(
              reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()),
              GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr))
    {
    }
    ~Handle()
    {
        if (isOpen())
            ::CloseHandle(m_handle);
    }
    Q_DISABLE_COPY_MOVE(Handle)

    bool isOpen() const { return m_handle != INVALID_HANDLE_VALUE; }

    /// A file with a second name was in an earlier generation already, and flushed with that one.
    bool isShared() const
    {
        BY_HANDLE_FILE_INFORMATION information{};
        return ::GetFileInformationByHandle(m_handle, &information) != 0 &&
               information.nNumberOfLinks > 1;
    }
    bool flush() const { return ::FlushFileBuffers(m_handle) != 0; }

private:
    HANDLE m_handle;
};

} // namespace

/// Rights are inherited from the folder around the workshop, the owner's too.
bool Disk::wouldTakeOver(const QString &)
{
    return false;
}

void Disk::letOthersRead() {}

QStringList Disk::closedFolders(const QString &)
{
    return {};
}

void Disk::pointTo(const QString &path, const QString &target)
{
    write(path, target.toUtf8());
}

QString Disk::targetName(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.read(kLongestTarget)).trimmed().section(u'/', -1);
}

void Disk::flush(const QString &folder)
{
    walk(folder, [](const Entry &entry) {
        if (!entry.isFile)
            return true;
        const Handle file(entry.path);
        if (!file.isOpen() || (!file.isShared() && !file.flush())) {
            throw Problem{Outcome::Disk,
                          u"Écriture impossible : %1 (%2)."_s.arg(entry.path, qt_error_string())};
        }
        return true;
    });
}

#include "publish/Commands.h"
#include "publish/Disk.h"
#include "publish/Interruption.h"
#include "publish/LauncherSettings.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <sodium.h>

#ifdef Q_OS_WIN
#include <windows.h>

namespace {

/// While it lives, the console reads what it is sent as UTF-8. It outlives the program.
class Utf8Console
{
public:
    Utf8Console()
        : m_before(::GetConsoleOutputCP())
    {
        ::SetConsoleOutputCP(CP_UTF8);
    }
    ~Utf8Console() { ::SetConsoleOutputCP(m_before); }
    Q_DISABLE_COPY_MOVE(Utf8Console)

private:
    UINT m_before;
};

} // namespace

#endif

int main(int argc, char **argv)
{
#ifdef Q_OS_WIN
    const Utf8Console console;
#endif
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(LauncherSettings::ownVersion());
    // The launcher's texts with printf-style marks make Qt complain with each report of a download.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    if (sodium_init() < 0)
        return static_cast<int>(Outcome::Disk);
    Interruption::watch();
    Disk::letOthersRead();
    return static_cast<int>(runPublisher(QCoreApplication::arguments().mid(1)));
}

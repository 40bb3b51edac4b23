#include "app/Identity.h"
#include "app/MainWindow.h"
#include "app/SingleInstance.h"
#include "ui/WindowPlacement.h"
#include "update/Updater.h"

#include <QApplication>
#include <QStandardPaths>
#include <QThreadPool>

#include <algorithm>
#include <chrono>
#include <cstdlib>

using namespace std::chrono_literals;

namespace {

// How long a closed launcher may live on for a verification that is stuck in the system.
constexpr std::chrono::milliseconds kVerificationEnd = 5s;

/// Qt's painting waits for a free thread of the pool, and on a machine with one processor the pool
/// has one thread: a verification would take it and freeze the window until its end.
void leaveThreadForPainting()
{
    QThreadPool *pool = QThreadPool::globalInstance();
    pool->setMaxThreadCount(std::max(2, pool->maxThreadCount()));
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    leaveThreadForPainting();
    Identity::apply();

    SingleInstance instance(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation),
                            QApplication::applicationDirPath());
    if (instance.isShownByAnother())
        return EXIT_SUCCESS;

    MainWindow window;
    instance.setWindow(&window);
    WindowPlacement::keepInReach(&window);
    window.show();
    const int exitCode = QApplication::exec();

    // A verification posts its progress to the window's Updater: the window may go only once the
    // pool is idle.
    Updater::abandonVerifications();
    if (!QThreadPool::globalInstance()->waitForDone(kVerificationEnd.count()))
        std::_Exit(exitCode); // a drive that does not answer: no orderly end
    return exitCode;
}

#include "app/Identity.h"
#include "app/MainWindow.h"
#include "app/SingleInstance.h"
#include "ui/WindowPlacement.h"
#include "ui/WindowsExtras.h"
#include "update/Updater.h"

#include <QApplication>
#include <QStandardPaths>
#include <QThreadPool>

#include <algorithm>
#include <cstdlib>

namespace {

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
    WindowsExtras::darkenTitleBars();

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
    if (!QThreadPool::globalInstance()->waitForDone(kLongestEnd.count()))
        std::_Exit(exitCode); // a drive that does not answer: no orderly end
    return exitCode;
}

#include "app/Identity.h"
#include "app/MainWindow.h"
#include "update/Updater.h"

#include <QApplication>
#include <QThreadPool>

#include <chrono>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kVerificationEnd = 5s;

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    Identity::apply();
    QApplication::setStyle(u"Fusion"_s);
    const QPalette palette = Identity::darkPalette();
    QApplication::setPalette(palette);

    MainWindow window;
    window.show();
    const int exitCode = QApplication::exec();

    // A verification posts its progress to the window's Updater: the window may go only once the
    // pool is idle.
    Updater::abandonVerifications();
    if (!QThreadPool::globalInstance()->waitForDone(kVerificationEnd.count()))
        std::_Exit(exitCode); // stuck in the system, on a drive that does not answer
    return exitCode;
}

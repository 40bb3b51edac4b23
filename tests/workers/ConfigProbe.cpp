// One run of a program that uses Config, for TestConfig: does what its arguments say, one after the
// other, and prints one line for each question.
//   location        where the configuration lies     file TEXT   writes the file behind its back
//   path            the game folder                  full        from now on files cannot grow
//   set PATH, save  what the settings dialog does

#include "config/Config.h"

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>
#include <QTextStream>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

QString location()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

void fillDisk()
{
#ifdef Q_OS_UNIX
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{0, 0};
    setrlimit(RLIMIT_FSIZE, &limit);
#endif
}

void writeFile(const QString &content)
{
    QFile file(location() + u"/config.json"_s);
    if (file.open(QIODevice::WriteOnly))
        file.write(content.toUtf8());
}

} // namespace

int main(int argc, char **argv)
{
#ifdef Q_OS_WIN
    // The folder is not to be had from the environment there.
    QStandardPaths::setTestModeEnabled(true);
#endif
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"Veyra Launcher"_s);
    QCoreApplication::setOrganizationName(u"Veyra"_s);

    QTextStream out(stdout);
    QStringList words = QCoreApplication::arguments().sliced(1);
    while (!words.isEmpty()) {
        const QString word = words.takeFirst();
        if (word == u"location"_s)
            out << location() << Qt::endl;
        else if (word == u"path"_s)
            out << Config::instance().dofusPath() << Qt::endl;
        else if (word == u"set"_s)
            Config::instance().setDofusPath(words.takeFirst());
        else if (word == u"save"_s)
            Config::instance().save();
        else if (word == u"file"_s)
            writeFile(words.takeFirst());
        else if (word == u"full"_s)
            fillDisk();
        else
            return 2;
    }
    return 0;
}

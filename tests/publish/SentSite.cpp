#include "tests/publish/SentSite.h"

#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"

#include <QDir>
#include <QProcess>

using namespace Qt::Literals::StringLiterals;

namespace {

/// With hard links between its files.
void copyTree(const QString &from, const QString &to)
{
    QDir(to).removeRecursively();
    QProcess::execute(u"cp"_s, {u"-a"_s, from, to});
}

/// A site that could be served again one day must not lack a file.
bool areOthersWhole(const QString &folder)
{
    const QDir generations(folder + u"/publications"_s);
    const QStringList names = generations.entryList({u"*-*"_s}, QDir::Dirs);
    for (const QString &name : names) {
        const QByteArray listing = ::Files::read(generations.filePath(name + u".liste"_s));
        const QList<QByteArray> lines =
            listing.isEmpty() ? QList<QByteArray>() : listing.split('\n');
        for (const QByteArray &line : lines) {
            const QString file = QString::fromUtf8(line.mid(66)); // behind the sum
            if (!QFile::exists(generations.filePath(name + u'/' + file)))
                return false;
        }
    }
    return true;
}

} // namespace

SentSite::Files SentSite::served(const QString &folder)
{
    Files content;
    const QStringList names = ::Files::tree(folder + u"/site"_s);
    for (const QString &name : names) {
        if (!name.endsWith(u'/'))
            content.insert(name, ::Files::read(folder + u"/site/"_s + name));
    }
    return content;
}

int SentSite::killAtEveryStep(const Publisher &publisher, const QString &address,
                              const QString &folder, int resumeEvery, int killEvery)
{
    constexpr int kMostSteps = 200;
    const QStringList send{u"envoyer"_s, address};
    const QString untouched = folder + u".avant"_s;
    QDir().mkpath(folder);
    copyTree(folder, untouched);
    const Files before = served(folder);
    const Files after = publisher.site();
    for (int step = 1; step < kMostSteps; step += killEvery) {
        copyTree(untouched, folder);
        const Publisher::Result result = publisher.runUntil(step, send);
        const Files site = served(folder);
        if ((site != before && site != after) || !areOthersWhole(folder)) {
            qWarning("Step %d leaves another site", step);
            return -1;
        }
        if (result.code == 0)
            return site == after ? step - 1 : -1;
        if (result.code != Publisher::kKilled) {
            qWarning("Step %d: %s", step, qPrintable(result.errors));
            return -1;
        }
        if (step / killEvery % resumeEvery != 0)
            continue;
        const Publisher::Result again = publisher.run(send);
        if (again.code != 0 || served(folder) != after) {
            qWarning("After step %d: %s", step, qPrintable(again.errors));
            return -1;
        }
    }
    return -1;
}

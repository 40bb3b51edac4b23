#include "publish/Generation.h"

#include "publish/Disk.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Site.h"
#include "publish/Workshop.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kInTheMaking = u".en-cours"_s;

} // namespace

Generation::Generation(const Workshop &workshop)
    : m_workshop(workshop)
    , m_folder(workshop.generationPath(kInTheMaking))
{
    Disk::removeTree(m_folder); // of a run that was killed
    Disk::makeFolder(m_folder);
}

Generation::Generation(const Workshop &workshop, const QStringList &without)
    : Generation(workshop)
{
    // From here on the destructor runs, also when this fails.
    linkFrom(workshop.generationPath(workshop.draft()), without);
    Site::linkStatus(*this);
}

Generation::~Generation()
{
    if (m_isCommitted)
        return;
    try {
        Disk::removeTree(m_folder);
    } catch (const Problem &) {
        // The next run tries again.
    }
}

void Generation::linkFrom(const QString &base, const QStringList &without) const
{
    const QDir folder(base);
    Disk::walk(base, [&](const Disk::Entry &entry) {
        Interruption::check();
        const QString name = folder.relativeFilePath(entry.path);
        const bool isLeftOut =
            std::any_of(without.begin(), without.end(),
                        [&name](const QString &start) { return name.startsWith(start); });
        if (entry.isFile && !isLeftOut)
            Disk::link(entry.path, fileFor(name));
        return !isLeftOut;
    });
}

QString Generation::fileFor(const QString &name) const
{
    QString path = m_folder + u'/' + name;
    if (const QString folder = QFileInfo(path).path(); !QFileInfo::exists(folder))
        Disk::makeFolder(folder);
    return path;
}

void Generation::write(const QString &name, const QByteArray &content) const
{
    Disk::write(fileFor(name), content);
}

void Generation::write(const QString &name, const QJsonDocument &document) const
{
    Disk::write(fileFor(name), document);
}

void Generation::pointTo(const QString &name, const QString &target) const
{
    Disk::pointTo(fileFor(name), target);
}

QString Generation::commit()
{
    Interruption::check();
    Disk::flush(m_folder);
    QString number = m_workshop.nextNumber();
    Disk::rename(m_folder, m_workshop.generationPath(number));
    m_isCommitted = true;
    m_workshop.setDraft(number);
    return number;
}

#include "publish/ClientFolder.h"

#include "config/GameFolder.h"
#include "publish/Disk.h"
#include "publish/FileNames.h"
#include "publish/French.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kMarker = "DofusInvoker.swf"_L1;
constexpr auto kProgram = "Dofus.exe"_L1;
constexpr qsizetype kMostShown = 20;

/// The launcher looks in the game folder itself and in one folder of it.
bool liesWhereTheLauncherLooks(const QString &name, QLatin1StringView file)
{
    return name == file || name == GameFolder::kClientSubfolder.mid(1) + u'/' + file;
}

/// The same where case does not count.
bool liesWhereWindowsLooks(const QString &name, QLatin1StringView file)
{
    return name.endsWith(file, Qt::CaseInsensitive) &&
           (name.size() == file.size() ||
            name.compare(GameFolder::kClientSubfolder.mid(1) + u'/' + file, Qt::CaseInsensitive) ==
                0);
}

class Exclusions
{
public:
    explicit Exclusions(const QStringList &patterns)
        : m_patterns(patterns)
        , m_uses(patterns.size(), 0)
    {
        for (const QString &pattern : patterns)
            append(pattern);
    }

    bool match(const QString &name)
    {
        bool isExcluded = false;
        for (qsizetype i = 0; i < m_patterns.size(); ++i) {
            if (matches(i, name)) {
                ++m_uses[i];
                isExcluded = true;
            }
        }
        m_count += isExcluded ? 1 : 0;
        return isExcluded;
    }

    qsizetype count() const { return m_count; }
    QStringList unused() const
    {
        QStringList result;
        for (qsizetype i = 0; i < m_patterns.size(); ++i) {
            if (m_uses.at(i) == 0)
                result.append(m_patterns.at(i));
        }
        return result;
    }

private:
    /// Folders may end with a "/", as the shell completes them.
    void append(const QString &pattern)
    {
        QString form = pattern;
        while (form.endsWith(u'/'))
            form.chop(1);
        m_arePaths.append(form.contains(u'/'));
        if (form.startsWith("./"_L1))
            form.remove(0, 2);
        m_expressions.append(QRegularExpression::fromWildcard(form, Qt::CaseSensitive));
        if (!m_expressions.last().isValid()) {
            throw Problem{Outcome::Usage,
                          u"--exclure %1 : ce n'est pas un motif (* ? [abc])."_s.arg(pattern)};
        }
    }

    bool matches(qsizetype index, const QString &name) const
    {
        const QRegularExpression &expression = m_expressions.at(index);
        return expression.match(m_arePaths.at(index) ? name : name.section(u'/', -1)).hasMatch();
    }

    QStringList m_patterns;
    QList<QRegularExpression> m_expressions;
    QList<bool> m_arePaths;
    QList<int> m_uses;
    qsizetype m_count = 0;
};

/// Two files, or a file and a folder, that are one on a player's machine.
QStringList clashes(const QList<ClientFile> &files)
{
    QStringList names;
    for (const ClientFile &file : files)
        names.append(file.name);
    QStringList problems;
    const QList<FileNames::Clash> all = FileNames::clashes(names);
    for (const FileNames::Clash &clash : all) {
        const QString what = clash.isFolder ? u"fichier et dossier du même nom pour Windows"_s
                                            : u"le même nom pour Windows"_s;
        problems.append(u"« %1 » et « %2 » : %3"_s.arg(clash.first, clash.second, what));
    }
    return problems;
}

/// Windows would find it, but the archive is made for all systems.
QString inOtherCase(const QList<ClientFile> &files, const QString &wanted)
{
    for (const ClientFile &file : files) {
        const QString name = file.name.section(u'/', -1);
        if (name != wanted && name.compare(wanted, Qt::CaseInsensitive) == 0)
            return u" (« %1 » n'a pas les mêmes majuscules)"_s.arg(file.name);
    }
    return {};
}

/// What is said of a folder without the marker where it belongs.
QString missingMarker(const QList<ClientFile> &files)
{
    for (const ClientFile &file : files) {
        if (file.name.endsWith(u'/' + kMarker)) {
            const QString folder = file.name.chopped(kMarker.size() + 1);
            const QString rename =
                folder.contains(u'/')
                    ? QString()
                    : u", ou renommez-le « %1 »"_s.arg(GameFolder::kClientSubfolder.mid(1));
            return u"%1 est dans « %2 » : le launcher ne l'y trouverait pas. Publiez ce "
                   u"dossier-là%3"_s.arg(kMarker, folder, rename);
        }
    }
    return u"%1 manque : sans lui le launcher ne voit pas de client"_s.arg(kMarker) +
           inOtherCase(files, kMarker);
}

bool hasFile(const QList<ClientFile> &files, QLatin1StringView wanted)
{
    return std::any_of(files.begin(), files.end(), [wanted](const ClientFile &file) {
        return liesWhereTheLauncherLooks(file.name, wanted);
    });
}

QStringList problemsOf(const QList<ClientFile> &files)
{
    QStringList problems;
    if (!hasFile(files, kMarker))
        problems.append(missingMarker(files));
    else if (!hasFile(files, kProgram))
        problems.append(u"%1 manque : « JOUER » ne démarrerait rien"_s.arg(kProgram) +
                        inOtherCase(files, kProgram));
    for (const ClientFile &file : files) {
        if (const QString problem = FileNames::problem(file.name); !problem.isEmpty())
            problems.append(u"« %1 » : %2"_s.arg(file.name, problem));
    }
    return problems + clashes(files);
}

QString listed(QStringList problems)
{
    const qsizetype more = problems.size() - kMostShown;
    if (more > 0) {
        problems.resize(kMostShown);
        problems.append(u"… et "_s + French::counted(more, u"autre"_s, u"autres"_s));
    }
    return u"Client refusé, rien n'a été changé :\n- "_s + problems.join("\n- "_L1);
}

} // namespace

ClientFolder ClientFolder::scan(const QString &folder, const QStringList &exclusions)
{
    const QDir root(folder);
    if (!root.exists()) {
        const QString what = QFileInfo::exists(folder) ? u"%1 n'est pas un dossier."_s
                                                       : u"Le dossier %1 n'existe pas, ou se "
                                                         u"trouve là où vous n'entrez pas."_s;
        throw Problem{Outcome::Refused, what.arg(folder)};
    }

    ClientFolder client;
    Exclusions excluded(exclusions);
    QStringList problems;
    Disk::walk(root.absolutePath(), [&](const Disk::Entry &entry) {
        Interruption::check();
        const QString name =
            root.relativeFilePath(entry.path).normalized(QString::NormalizationForm_C);
        if (excluded.match(name))
            return false;
        if (entry.isFile)
            client.add(name, entry.path);
        else if (!entry.isFolder)
            problems.append(u"« %1 » : lien ou fichier spécial"_s.arg(name));
        return true;
    });
    client.excluded = excluded.count();
    const QStringList unused = excluded.unused();
    for (const QString &pattern : unused)
        client.warnings.append(u"--exclure %1 n'a rien exclu."_s.arg(pattern));

    std::sort(client.files.begin(), client.files.end(),
              [](const ClientFile &left, const ClientFile &right) {
                  return left.name.toUtf8() < right.name.toUtf8();
              });
    problems += problemsOf(client.files);
    if (!problems.isEmpty())
        throw Problem{Outcome::Refused, (client.warnings << listed(problems)).join(u'\n')};
    return client;
}

void ClientFolder::add(const QString &name, const QString &path)
{
    files.append({name, path, FileStamp::of(path)});
    if (files.last().stamp.size > kLargestForPowerShell) {
        warnings.append(
            u"« %1 » dépasse 2 Go : PowerShell ne sait pas toujours le décompresser."_s.arg(name));
    }
}

qint64 ClientFolder::totalSize() const
{
    qint64 total = 0;
    for (const ClientFile &file : files)
        total += file.stamp.size;
    return total;
}

QStringList ClientFolder::markers(const QStringList &names)
{
    // The game folder itself is where the launcher looks for the program first.
    const bool isPlayedAtRoot = names.contains(kProgram, Qt::CaseInsensitive);
    QStringList markers;
    for (const QString &name : names) {
        const bool isPlayed = !name.contains(u'/') == isPlayedAtRoot;
        if (liesWhereWindowsLooks(name, kMarker))
            markers.insert(isPlayed ? 0 : markers.size(), name);
    }
    return markers;
}

bool ClientFolder::isProgram(const QString &name)
{
    return liesWhereTheLauncherLooks(name, kProgram);
}

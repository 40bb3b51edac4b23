#include "publish/LauncherArchive.h"

#include "publish/Interruption.h"
#include "publish/Progress.h"
#include "updater/Version.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kWindows = u"windows-x64"_s;
const auto kLinux = u"linux-x64"_s;

/// Looks for bytes in what comes piece by piece.
class Search
{
public:
    explicit Search(const QByteArray &wanted)
        : m_wanted(wanted)
    {
    }

    void add(const char *bytes, size_t count)
    {
        m_window.append(bytes, static_cast<qsizetype>(count));
        m_isFound = m_isFound || m_window.contains(m_wanted);
        // The end may be the beginning of what is looked for.
        m_window = m_window.right(m_wanted.size() - 1);
    }
    bool isFound() const { return m_isFound; }

private:
    QByteArray m_wanted;
    QByteArray m_window;
    bool m_isFound = false;
};

/// As a text that the program was built with stands in it: UTF-16, the low byte first, a zero at
/// its end. Without that it could be the beginning of another one.
QByteArray compiledIn(const QString &text)
{
    QByteArray bytes;
    for (const QChar c : text + QChar(u'\0')) {
        bytes.append(static_cast<char>(c.cell()));
        bytes.append(static_cast<char>(c.row()));
    }
    return bytes;
}

} // namespace

LauncherArchive LauncherArchive::read(const QString &path, const UpdateTerms &terms,
                                      const QString &baseUrl)
{
    const UpdateArchive archive(path.toStdString(), terms);
    LauncherArchive launcher;
    launcher.version = QString::fromStdString(archive.list().version);
    const std::string name = program(QString::fromStdString(terms.target)).toStdString();
    launcher.hasProgram = archive.list().find(name) != nullptr;

    Progress progress(u"Launcher"_s, static_cast<qint64>(archive.list().totalBytes()));
    Search address(compiledIn(baseUrl));
    for (const UpdateList::File &file : archive.list().files) {
        archive.extract(file, [&](const char *bytes, size_t count) {
            Interruption::check();
            progress.advance(static_cast<qint64>(count));
            if (file.name == name)
                address.add(bytes, count);
        });
    }
    launcher.asksThere = address.isFound();
    return launcher;
}

UpdateTerms LauncherArchive::terms(const QString &target, const QStringList &keys,
                                   const QStringList &versions)
{
    UpdateTerms terms;
    for (const QString &key : keys)
        terms.keys.push_back(UpdateKey::parse(key.toStdString()));
    terms.target = target.toStdString();
    for (const QString &version : versions) {
        if (Version::isValid(version.toStdString()))
            terms.versions.push_back(version.toStdString());
    }
    return terms;
}

QStringList LauncherArchive::targets()
{
    return {kWindows, kLinux};
}

QString LauncherArchive::program(const QString &target)
{
    return target == kWindows ? u"VeyraLauncher.exe"_s : u"VeyraLauncher"_s;
}

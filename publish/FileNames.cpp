#include "publish/FileNames.h"

#include <QHash>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Of 259 UTF-16 units that Windows' own unpacker bears, what a long game folder leaves.
constexpr qsizetype kLongestName = 180;
constexpr qsizetype kLongestPart = 255; ///< bytes, of Linux

bool isControl(QChar c)
{
    return c < u' ' || c == u'\x7f';
}

QString problemOfPart(const QString &part)
{
    static const QRegularExpression kDevice(
        u"^(con|prn|aux|nul|conin\\$|conout\\$|clock\\$|(com|lpt)[0-9¹²³]) *(\\.|$)"_s,
        QRegularExpression::CaseInsensitiveOption);
    if (part.isEmpty() || part == u'.' || part == ".."_L1)
        return u"élément vide ou relatif dans le chemin"_s;
    if (part.toUtf8().size() > kLongestPart)
        return u"nom trop long"_s;
    if (part.endsWith(u'.') || part.endsWith(u' '))
        return u"point ou espace final, que Windows supprime"_s;
    if (kDevice.match(part).hasMatch())
        return u"nom réservé par Windows"_s;
    return {};
}

} // namespace

QString FileNames::problem(const QString &name)
{
    static const QString kForbidden = u"<>:\"|?*\\"_s;
    if (name.size() > kLongestName)
        return u"chemin trop long (plus de %1 caractères)"_s.arg(kLongestName);
    if (!name.isValidUtf16() || name.contains(QChar::ReplacementCharacter))
        return u"nom qui n'est pas en UTF-8"_s;
    if (std::any_of(name.begin(), name.end(), isControl))
        return u"caractère de contrôle"_s;
    for (const QChar c : kForbidden) {
        if (name.contains(c))
            return u"caractère interdit sous Windows, « %1 »"_s.arg(c);
    }
    const QStringList parts = name.split(u'/');
    for (const QString &part : parts) {
        if (QString found = problemOfPart(part); !found.isEmpty())
            return found;
    }
    // The launcher's archive lies there while it is unpacked, and the lock that guards it.
    static const QStringList kLaunchers{u"dofusclient.zip"_s, u".dofusclient.zip.lock"_s};
    if (kLaunchers.contains(folded(name)))
        return u"nom réservé au launcher"_s;
    return {};
}

QList<FileNames::Clash> FileNames::clashes(const QStringList &names)
{
    QList<Clash> clashes;
    QHash<QString, QString> files;
    for (const QString &name : names) {
        if (name.endsWith(u'/'))
            continue;
        QString &first = files[folded(name)];
        if (first.isNull())
            first = name;
        else
            clashes.append({first, name, false});
    }
    for (const QString &name : names) {
        const QString path = folded(name);
        for (qsizetype end = path.lastIndexOf(u'/'); end > 0;
             end = path.lastIndexOf(u'/', end - 1)) {
            if (const QString file = files.value(path.first(end)); !file.isNull()) {
                clashes.append({file, name, true});
                break;
            }
        }
    }
    return clashes;
}

QString FileNames::folded(const QString &name)
{
    return name.normalized(QString::NormalizationForm_C).toCaseFolded();
}

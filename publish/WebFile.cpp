#include "publish/WebFile.h"

#include "publish/Site.h"
#include "publish/WebRequest.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kOk = 200;
constexpr int kForbidden = 403;
constexpr auto kNoCache = "no-cache";

/// Of what operators put on a site; nginx knows more.
QByteArray typeOf(const QByteArray &path)
{
    static const QHash<QByteArray, QByteArray> kTypes{
        {"html", "text/html; charset=utf-8"},
        {"htm", "text/html; charset=utf-8"},
        {"txt", "text/plain; charset=utf-8"},
        {"css", "text/css"},
        {"js", "application/javascript; charset=utf-8"},
        {"json", "application/json"},
        {"xml", "text/xml; charset=utf-8"},
        {"png", "image/png"},
        {"jpg", "image/jpeg"},
        {"jpeg", "image/jpeg"},
        {"gif", "image/gif"},
        {"svg", "image/svg+xml"},
        {"ico", "image/x-icon"},
        {"zip", "application/zip"},
        {"swf", "application/x-shockwave-flash"},
        {"exe", "application/octet-stream"},
        {"dll", "application/octet-stream"},
        {"bin", "application/octet-stream"},
        {"msi", "application/octet-stream"},
    };
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    const qsizetype dot = name.lastIndexOf('.');
    return kTypes.value(
        dot < 0 ? QByteArray() : name.mid(dot + 1).toLower(),
        "text/plain; charset=utf-8"); // what nginx says of all that it does not know
}

} // namespace

WebFile WebFile::find(const QString &root, const QString &statusPath, const WebRequest &request)
{
    WebFile file;
    const QByteArray &path = request.path;
    const QByteArray place = request.namesFolder ? path + '/' : path;
    const bool isData =
        place.startsWith("/api/") || place == '/' + QByteArray(Site::kManifest.latin1());
    const bool isLauncher = place.startsWith("/launcher/");
    QFileInfo info(root + QString::fromUtf8(path));
    if (info.isDir() && (isData || isLauncher)) {
        file.status = request.namesFolder ? kForbidden : file.status;
        return file;
    }
    if (info.isDir())
        info.setFile(info.filePath() + u'/' + Site::kIndexPage);
    else if (request.namesFolder)
        return file;
    const QString folder = QFileInfo(root).canonicalFilePath();
    const QString real = info.canonicalFilePath();
    if (folder.isEmpty() || real.isEmpty() || !info.isFile())
        return file;
    if (!real.startsWith(folder + u'/') && real != QFileInfo(statusPath).canonicalFilePath())
        return file;

    file.status = kOk;
    file.path = real;
    file.type = isData ? "application/json"_ba : typeOf(info.filePath().toUtf8());
    file.cacheControl = isLauncher ? "public, max-age=31536000, immutable" : kNoCache;
    return file;
}

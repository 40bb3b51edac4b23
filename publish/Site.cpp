#include "publish/Site.h"

#include "publish/Console.h"
#include "publish/Disk.h"
#include "publish/Generation.h"
#include "publish/JsonFile.h"
#include "publish/Workshop.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kLauncherFolder = "launcher/"_L1;
constexpr auto kPage = R"(<!DOCTYPE html>
<html lang="fr">
<head>
<meta charset="utf-8">
<title>Veyra</title>
<style>
body { margin: 0; min-height: 100vh; color: #fff; font-family: sans-serif;
       background: linear-gradient(160deg, #121212, #33502a); }
main { max-width: 40rem; margin: 0 auto; padding: 4rem 1.5rem; }
h1 { color: #8bc34a; }
</style>
</head>
<body>
<main>
<h1>Veyra</h1>
<p>Le serveur de jeu Veyra. Pour jouer, installez le launcher.</p>
</main>
</body>
</html>
)";

// %1 ports and certificates, %2 host, %3 folder
const auto kNginxServer = uR"(server {
%1
    server_name %2;
    root "%3";
    index index.html;
    charset utf-8;
    gzip off;

    # Deux noms en .php, mais ce sont des fichiers JSON.
    location ~ ^/(api/.*|updates/version\.json)$ {
        types { }
        default_type application/json;
        add_header Cache-Control "no-cache";
    }

    # Le nom d'une archive du launcher ne sert qu'une fois.
    location /launcher/ {
        add_header Cache-Control "public, max-age=31536000, immutable";
    }

    location / {
        add_header Cache-Control "no-cache";
        try_files $uri $uri/index.html =404;
    }
}
)"_s;

QJsonDocument launcherRecord(const Workshop &workshop)
{
    return JsonFile::read(workshop.generationPath(workshop.draft()) + u'/' +
                          Site::kLauncherVersion);
}

QString listening(const QUrl &url)
{
    if (url.scheme() == "http"_L1) {
        const int port = url.port(80);
        return u"    listen %1;\n    listen [::]:%1;"_s.arg(port);
    }
    const int port = url.port(443);
    return u"    listen %1 ssl;\n    listen [::]:%1 ssl;\n"
           u"    ssl_certificate /etc/letsencrypt/live/%2/fullchain.pem;\n"
           u"    ssl_certificate_key /etc/letsencrypt/live/%2/privkey.pem;"_s.arg(port)
               .arg(url.host());
}

} // namespace

void Site::writeEmpty(const Generation &generation)
{
    generation.write(kIndexPage, QByteArray(kPage));
    generation.write(kNews, QJsonDocument(QJsonArray()));
    // No launcher is newer than one without a version.
    generation.write(kLauncherVersion, QJsonDocument(QJsonObject{{"version"_L1, ""_L1},
                                                                 {"download_url"_L1, ""_L1},
                                                                 {"changelog"_L1, ""_L1},
                                                                 {"required"_L1, false}}));
    linkStatus(generation);
}

void Site::linkStatus(const Generation &generation)
{
    if (Disk::kMakesLinks)
        generation.pointTo(kStatus, u"../../../etat/status.json"_s); // from publications/NNNN/api/
    else
        generation.write(kStatus, Disk::read(generation.workshop().statusPath()));
}

QString Site::publishedVersion(const Workshop &workshop)
{
    return launcherRecord(workshop)["version"_L1].toString();
}

QString Site::publishedArchive(const Workshop &workshop)
{
    const QString url = launcherRecord(workshop)["download_url"_L1].toString();
    return kLauncherFolder + url.section(u'/', -1);
}

QString Site::launcherArchive(const QString &version, const QString &target)
{
    return kLauncherFolder + u"VeyraLauncher-%1-%2.zip"_s.arg(version, target);
}

void Site::warnOfClosedFolders(const QString &folder)
{
    const QStringList closed = Disk::closedFolders(folder);
    for (const QString &name : closed) {
        Console::complain(
            u"Attention : le serveur web ne peut pas entrer dans %1 et répondrait 403. « chmod "
            u"o+x '%1' » l'y laisse passer ; ou choisissez un dossier dans /srv."_s.arg(name));
    }
}

QString Site::nginxBlock(const Workshop &workshop)
{
    const QUrl url(workshop.baseUrl());
    QString folder = workshop.sitePath();
    folder.replace(u'\\', "\\\\"_L1).replace(u'"', "\\\""_L1);
    return kNginxServer.arg(listening(url), url.host(), folder);
}

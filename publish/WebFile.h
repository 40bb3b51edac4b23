#pragma once

#include <QByteArray>
#include <QString>

struct WebRequest;

/// What a web server that was set up with the block of Site::nginxBlock() has at a path.
struct WebFile
{
    int status = 404; ///< 200: the rest is filled in
    QString path;
    QByteArray type;
    QByteArray cacheControl;

    /// `root` is the site's folder, or a link to it. Of what lies outside nothing is shown but
    /// `statusPath`, to which the site has a link.
    static WebFile find(const QString &root, const QString &statusPath, const WebRequest &request);
};

#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

class Publisher;

/// A folder that a site is sent to.
namespace SentSite {

using Files = QMap<QString, QByteArray>;

/// What a web server would serve from there, by name; nothing where there is none yet.
Files served(const QString &folder);

/// Sends it killed at its first change, at its second and so on, or at every `killEvery`th, each
/// time from what is there now, until it comes through. Returns how often it could have been
/// killed, or -1 when players had something else than what was there before or the workshop's site.
/// Of these every `resumeEvery`th is sent again, and has to come through.
int killAtEveryStep(const Publisher &publisher, const QString &address, const QString &folder,
                    int resumeEvery = 1, int killEvery = 1);

} // namespace SentSite

#include "publish/JsonFile.h"

#include "publish/Disk.h"
#include "publish/Outcome.h"

using namespace Qt::Literals::StringLiterals;

QJsonDocument JsonFile::read(const QString &path)
{
    QJsonParseError error;
    QJsonDocument document = QJsonDocument::fromJson(Disk::read(path), &error);
    if (document.isNull()) {
        throw Problem{
            Outcome::Refused,
            u"%1 n'est plus du JSON, à partir de l'octet %2 ; rien n'a été changé."_s.arg(path).arg(
                error.offset)};
    }
    return document;
}

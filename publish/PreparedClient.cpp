#include "publish/PreparedClient.h"

#include "publish/Fingerprints.h"
#include "publish/Site.h"

using namespace Qt::Literals::StringLiterals;

PreparedClient::PreparedClient(const QString &folder)
    : m_folder(folder + u'/')
    , m_finished(FileStamp::of(m_folder + Site::kManifest).modified)
{
}

bool PreparedClient::isUntouched(const QString &name, std::optional<qint64> size) const
{
    const FileStamp stamp = FileStamp::of(m_folder + name);
    const bool isThere = stamp.modified != 0;
    return isThere && stamp.modified <= m_finished && stamp.size == size.value_or(stamp.size);
}

#include "publish/FileSum.h"

#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Sha256Sum.h"

#include <QFile>

using namespace Qt::Literals::StringLiterals;

QByteArray fileSum(const QString &path, const std::function<void(qint64)> &read)
{
    constexpr qint64 kChunk = qint64{1024} * 1024;
    QFile file(path);
    const bool isOpen = file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    Sha256Sum sum;
    QByteArray chunk(kChunk, Qt::Uninitialized);
    qint64 count = isOpen ? 1 : -1;
    while (count > 0) {
        Interruption::check();
        count = file.read(chunk.data(), chunk.size());
        if (count > 0) {
            sum.add(QByteArrayView(chunk).first(count));
            read(count);
        }
    }
    if (count < 0) {
        throw Problem{Outcome::Disk,
                      u"Lecture impossible : %1 (%2)."_s.arg(path, file.errorString())};
    }
    return sum.result();
}

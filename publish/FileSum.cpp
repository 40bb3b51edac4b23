#include "publish/FileSum.h"

#include "publish/Interruption.h"
#include "publish/Outcome.h"

#include <QFile>

#include <sodium.h>

using namespace Qt::Literals::StringLiterals;

QByteArray fileSum(const QString &path, const std::function<void(qint64)> &read)
{
    constexpr qint64 kChunk = qint64{1024} * 1024;
    QFile file(path);
    const bool isOpen = file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    crypto_hash_sha256_state state;
    crypto_hash_sha256_init(&state);
    QByteArray chunk(kChunk, Qt::Uninitialized);
    qint64 count = isOpen ? 1 : -1;
    while (count > 0) {
        Interruption::check();
        count = file.read(chunk.data(), chunk.size());
        if (count > 0) {
            crypto_hash_sha256_update(&state, reinterpret_cast<unsigned char *>(chunk.data()),
                                      static_cast<unsigned long long>(count));
            read(count);
        }
    }
    if (count < 0) {
        throw Problem{Outcome::Disk,
                      u"Lecture impossible : %1 (%2)."_s.arg(path, file.errorString())};
    }
    QByteArray sum(crypto_hash_sha256_BYTES, Qt::Uninitialized);
    crypto_hash_sha256_final(&state, reinterpret_cast<unsigned char *>(sum.data()));
    return sum.toHex();
}

#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <sodium.h>

/// The SHA-256 of bytes that come in pieces.
class Sha256
{
public:
    Sha256() { crypto_hash_sha256_init(&m_state); }

    void add(QByteArrayView piece)
    {
        crypto_hash_sha256_update(&m_state, reinterpret_cast<const unsigned char *>(piece.data()),
                                  static_cast<unsigned long long>(piece.size()));
    }

    /// In lower-case hexadecimal. Nothing can be added afterwards.
    QByteArray result()
    {
        QByteArray sum(crypto_hash_sha256_BYTES, Qt::Uninitialized);
        crypto_hash_sha256_final(&m_state, reinterpret_cast<unsigned char *>(sum.data()));
        return sum.toHex();
    }

private:
    crypto_hash_sha256_state m_state;
};

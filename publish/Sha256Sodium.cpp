#include "publish/Sha256.h"

#include <sodium.h>

struct Sha256::State
{
    crypto_hash_sha256_state hash;
};

Sha256::Sha256()
    : m_state(std::make_unique<State>())
{
    crypto_hash_sha256_init(&m_state->hash);
}

Sha256::~Sha256() = default;

void Sha256::add(QByteArrayView piece)
{
    crypto_hash_sha256_update(&m_state->hash, reinterpret_cast<const unsigned char *>(piece.data()),
                              static_cast<unsigned long long>(piece.size()));
}

QByteArray Sha256::result()
{
    QByteArray sum(crypto_hash_sha256_BYTES, Qt::Uninitialized);
    crypto_hash_sha256_final(&m_state->hash, reinterpret_cast<unsigned char *>(sum.data()));
    return sum.toHex();
}

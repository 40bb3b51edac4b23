#include "publish/Sha256Sum.h"

#include <sodium.h>

struct Sha256Sum::State
{
    crypto_hash_sha256_state hash;
};

Sha256Sum::Sha256Sum()
    : m_state(std::make_unique<State>())
{
    crypto_hash_sha256_init(&m_state->hash);
}

Sha256Sum::~Sha256Sum() = default;

void Sha256Sum::add(QByteArrayView piece)
{
    crypto_hash_sha256_update(&m_state->hash, reinterpret_cast<const unsigned char *>(piece.data()),
                              static_cast<unsigned long long>(piece.size()));
}

QByteArray Sha256Sum::result()
{
    QByteArray sum(crypto_hash_sha256_BYTES, Qt::Uninitialized);
    crypto_hash_sha256_final(&m_state->hash, reinterpret_cast<unsigned char *>(sum.data()));
    return sum.toHex();
}

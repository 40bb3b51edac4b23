#include "publish/Sha256Sum.h"

#include <openssl/evp.h>

#include <new>

struct Sha256Sum::State
{
    EVP_MD_CTX *context = EVP_MD_CTX_new();
};

Sha256Sum::Sha256Sum()
    : m_state(std::make_unique<State>())
{
    if (EVP_DigestInit_ex(m_state->context, EVP_sha256(), nullptr) != 1)
        throw std::bad_alloc();
}

Sha256Sum::~Sha256Sum()
{
    EVP_MD_CTX_free(m_state->context);
}

void Sha256Sum::add(QByteArrayView piece)
{
    EVP_DigestUpdate(m_state->context, piece.data(), size_t(piece.size()));
}

QByteArray Sha256Sum::result()
{
    QByteArray sum(EVP_MD_CTX_size(m_state->context), Qt::Uninitialized);
    EVP_DigestFinal_ex(m_state->context, reinterpret_cast<unsigned char *>(sum.data()), nullptr);
    return sum.toHex();
}

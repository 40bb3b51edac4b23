#include "tests/updater/KeyPair.h"

#include <sodium.h>

#include <algorithm>

namespace {

template <typename Bytes> QByteArray bytes(const Bytes &array)
{
    return QByteArray(reinterpret_cast<const char *>(array.data()), qsizetype(array.size()));
}

const unsigned char *data(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

} // namespace

KeyPair::KeyPair()
{
    if (sodium_init() < 0)
        qFatal("libsodium does not start");
    randombytes_buf(m_id.data(), m_id.size());
    crypto_sign_keypair(m_publicKey.data(), m_secretKey.data());
}

KeyPair KeyPair::fromSeed(const QByteArray &seed)
{
    KeyPair result;
    Q_ASSERT(seed.size() == crypto_sign_SEEDBYTES);
    std::copy_n(seed.constData(), result.m_id.size(), result.m_id.begin());
    crypto_sign_seed_keypair(result.m_publicKey.data(), result.m_secretKey.data(), data(seed));
    return result;
}

std::string KeyPair::publicKey() const
{
    return ("Ed" + bytes(m_id) + bytes(m_publicKey)).toBase64().toStdString();
}

QByteArray KeyPair::publicKeyFile() const
{
    return "untrusted comment: minisign public key\n" + QByteArray::fromStdString(publicKey()) +
           "\n";
}

QByteArray KeyPair::sign(const QByteArray &content, const QByteArray &trustedComment,
                         Form form) const
{
    QByteArray message = content;
    if (form == Form::Prehashed) {
        std::array<unsigned char, 64> sum{};
        crypto_generichash(sum.data(), sum.size(), data(content),
                           static_cast<unsigned long long>(content.size()), nullptr, 0);
        message = bytes(sum);
    }
    std::array<unsigned char, 64> signature{};
    crypto_sign_detached(signature.data(), nullptr, data(message),
                         static_cast<unsigned long long>(message.size()), m_secretKey.data());
    const QByteArray whole = bytes(signature) + trustedComment;
    std::array<unsigned char, 64> global{};
    crypto_sign_detached(global.data(), nullptr, data(whole),
                         static_cast<unsigned long long>(whole.size()), m_secretKey.data());

    const QByteArray mark = form == Form::Prehashed ? "ED" : "Ed";
    return "untrusted comment: signature of a test\n" +
           (mark + bytes(m_id) + bytes(signature)).toBase64() +
           "\ntrusted comment: " + trustedComment + "\n" + bytes(global).toBase64() + "\n";
}

KeyPair KeyPair::impostor() const
{
    KeyPair other;
    other.m_id = m_id;
    return other;
}

#pragma once

#include <QByteArray>

#include <array>
#include <string>

/// A throwaway key pair that signs as minisign does, wherever the tests run.
class KeyPair
{
public:
    enum class Form {
        Prehashed, ///< what "minisign -S" makes today
        Plain      ///< what it made before, without the sum
    };

    KeyPair();
    /// The same pair for the same 32 bytes.
    static KeyPair fromSeed(const QByteArray &seed);

    /// The second line of a public key file.
    std::string publicKey() const;
    /// The whole file that "minisign -p" reads.
    QByteArray publicKeyFile() const;
    /// What stands in the ".minisig" file.
    QByteArray sign(const QByteArray &content,
                    const QByteArray &trustedComment = "timestamp:1735689600",
                    Form form = Form::Prehashed) const;
    /// Another key that claims to be this one.
    KeyPair impostor() const;

private:
    std::array<unsigned char, 8> m_id{};
    std::array<unsigned char, 32> m_publicKey{};
    std::array<unsigned char, 64> m_secretKey{};
};

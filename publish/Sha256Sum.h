#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

/// The SHA-256 of bytes that come in pieces. OpenSSL makes it where it is there, since it uses the
/// processor's own instructions; else libsodium, which takes several times as long. The updater
/// has a class of its own, without either choice: `Sha256`.
class Sha256Sum
{
public:
    Sha256Sum();
    ~Sha256Sum();
    Q_DISABLE_COPY_MOVE(Sha256Sum)

    void add(QByteArrayView piece);
    /// In lower-case hexadecimal. Nothing can be added afterwards.
    QByteArray result();

private:
    struct State;

    std::unique_ptr<State> m_state;
};

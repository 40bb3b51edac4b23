#pragma once

#include <QSslConfiguration>
#include <QString>

/// Throwaway certificates for the host veyra.test (and localhost), made when the tests were built.
namespace Certificates {

/// What a server proves with who it is; PEM files.
struct Identity
{
    QString certificateFile;
    QString keyFile;
};

enum class Kind {
    Good,             ///< by the tests' authority, for the right host
    Expired,          ///< good, but for its date
    AnotherHost,      ///< good, but for its name
    UnknownAuthority, ///< good, but by an authority that nobody trusts
    SelfSigned,       ///< by no authority at all
};

/// Why there can be no TLS here, for QSKIP; empty when there can be.
QString missing();
Identity identity(Kind kind);

/// While it lives, this process trusts the tests' authority and no other.
class TrustedAuthority
{
public:
    TrustedAuthority();
    ~TrustedAuthority();
    Q_DISABLE_COPY_MOVE(TrustedAuthority)

private:
    QSslConfiguration m_before;
};

} // namespace Certificates

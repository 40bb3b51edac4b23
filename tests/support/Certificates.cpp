#include "tests/support/Certificates.h"

#include <QSslCertificate>
#include <QSslSocket>

using namespace Qt::Literals::StringLiterals;

namespace {

// Empty where no openssl was found to make them with.
QString folder()
{
    return QStringLiteral(VEYRA_CERTIFICATES);
}

QString fileOf(const QString &name)
{
    return folder() + u'/' + name;
}

QString nameOf(Certificates::Kind kind)
{
    switch (kind) {
    case Certificates::Kind::Good:
        return u"good"_s;
    case Certificates::Kind::Expired:
        return u"expired"_s;
    case Certificates::Kind::AnotherHost:
        return u"another-host"_s;
    case Certificates::Kind::UnknownAuthority:
        return u"unknown-authority"_s;
    case Certificates::Kind::SelfSigned:
        return u"self-signed"_s;
    }
    Q_UNREACHABLE();
}

} // namespace

QString Certificates::missing()
{
    if (folder().isEmpty())
        return u"There was no openssl to make certificates with when this was built"_s;
    if (!QSslSocket::supportsSsl())
        return u"This Qt has no TLS library"_s;
    return {};
}

Certificates::Identity Certificates::identity(Kind kind)
{
    return {fileOf(nameOf(kind) + u".pem"_s), fileOf(u"server.key"_s)};
}

Certificates::TrustedAuthority::TrustedAuthority()
    : m_before(QSslConfiguration::defaultConfiguration())
{
    QSslConfiguration configuration = m_before;
    configuration.setCaCertificates(QSslCertificate::fromPath(fileOf(u"authority.pem"_s)));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

Certificates::TrustedAuthority::~TrustedAuthority()
{
    QSslConfiguration::setDefaultConfiguration(m_before);
}

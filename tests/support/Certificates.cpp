#include "tests/support/Certificates.h"

#include <QDir>
#include <QFile>
#include <QSslSocket>

using namespace Qt::Literals::StringLiterals;

namespace {

// Empty where no openssl was found to make them with.
QString folder()
{
    return QStringLiteral(VEYRA_CERTIFICATES);
}

QSslCertificate certificate(const QString &name)
{
    QFile file(folder() + u'/' + name + u".pem"_s);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("There is no %s", qPrintable(file.fileName()));
    return QSslCertificate(&file);
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
    QFile file(folder() + u"/server.key"_s);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("There is no %s", qPrintable(file.fileName()));
    return {certificate(nameOf(kind)), QSslKey(&file, QSsl::Rsa)};
}

Certificates::TrustedAuthority::TrustedAuthority()
    : m_before(QSslConfiguration::defaultConfiguration())
{
    QSslConfiguration configuration = m_before;
    configuration.setCaCertificates({certificate(u"authority"_s)});
    QSslConfiguration::setDefaultConfiguration(configuration);
}

Certificates::TrustedAuthority::~TrustedAuthority()
{
    QSslConfiguration::setDefaultConfiguration(m_before);
}

#include "tests/support/Introspection.h"

#include <QMetaMethod>
#include <QNetworkAccessManager>
#include <QVariant>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kLastUserAttribute = QNetworkRequest::User + 100; // of 31,767: a sample

QString accessOf(const QMetaMethod &method)
{
    switch (method.access()) {
    case QMetaMethod::Private:
        return u"private"_s;
    case QMetaMethod::Protected:
        return u"protected"_s;
    case QMetaMethod::Public:
        break;
    }
    return u"public"_s;
}

QString kindOf(const QMetaMethod &method)
{
    switch (method.methodType()) {
    case QMetaMethod::Signal:
        return u"signal"_s;
    case QMetaMethod::Slot:
        return u"slot"_s;
    case QMetaMethod::Constructor:
        return u"constructor"_s;
    case QMetaMethod::Method:
        break;
    }
    return u"invokable"_s;
}

QString textOf(const QMetaMethod &method)
{
    QStringList parameters;
    for (int i = 0; i < method.parameterCount(); ++i) {
        parameters.append(QString::fromLatin1(method.parameterTypeName(i)) + u' ' +
                          QString::fromLatin1(method.parameterNames().at(i)));
    }
    return accessOf(method) + u' ' + kindOf(method) + u' ' + QString::fromLatin1(method.name()) +
           u'(' + parameters.join(u", "_s) + u')';
}

} // namespace

QStringList Introspection::declarations(const QMetaObject &meta)
{
    QStringList texts;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        texts.append(textOf(meta.method(i)));
    for (int i = 0; i < meta.constructorCount(); ++i)
        texts.append(textOf(meta.constructor(i)));
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
        texts.append(u"property "_s + QString::fromLatin1(meta.property(i).name()));
    for (int i = meta.enumeratorOffset(); i < meta.enumeratorCount(); ++i)
        texts.append(u"enumerator "_s + QString::fromLatin1(meta.enumerator(i).name()));
    return texts;
}

QNetworkReply *Introspection::pendingReply(const QObject &worker)
{
    const auto *manager =
        worker.findChild<QNetworkAccessManager *>(QString(), Qt::FindDirectChildrenOnly);
    if (!manager)
        return nullptr;
    const auto replies = manager->findChildren<QNetworkReply *>();
    return replies.size() == 1 ? replies.first() : nullptr;
}

QStringList Introspection::traits(const QNetworkRequest &request)
{
    QStringList texts;
    const auto addAttribute = [&](int code) {
        const QVariant value = request.attribute(QNetworkRequest::Attribute(code));
        if (value.isValid()) {
            texts.append(u"attribute %1 = %2"_s.arg(code).arg(
                QString::fromLatin1(value.typeName()) + u' ' + value.toString()));
        }
    };
    for (int code = 0; code < 100; ++code)
        addAttribute(code);
    for (int code = QNetworkRequest::User; code < kLastUserAttribute; ++code)
        addAttribute(code);
    for (const QByteArray &header : request.rawHeaderList())
        texts.append(u"header "_s + QString::fromLatin1(header));
    if (request.transferTimeout() != 0)
        texts.append(u"timeout %1"_s.arg(request.transferTimeout()));
    if (request.maximumRedirectsAllowed() != QNetworkRequest().maximumRedirectsAllowed())
        texts.append(u"redirects %1"_s.arg(request.maximumRedirectsAllowed()));
    if (request.priority() != QNetworkRequest::NormalPriority)
        texts.append(u"priority %1"_s.arg(int(request.priority())));
    return texts;
}

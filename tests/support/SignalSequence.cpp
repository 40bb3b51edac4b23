#include "tests/support/SignalSequence.h"

#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kPatience = 60s; // sanitizers and busy machines are slow

QString quoted(const QString &text)
{
    return u'"' + text + u'"';
}

QString textOf(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QString>())
        return quoted(value.toString());
    if (value.metaType() == QMetaType::fromType<QStringList>()) {
        QStringList texts;
        for (const QString &text : value.toStringList())
            texts.append(quoted(text));
        return u'[' + texts.join(u", "_s) + u']';
    }
    return value.toString();
}

} // namespace

SignalSequence::SignalSequence(QObject *sender)
{
    const QMetaObject *meta = sender->metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() != QMetaMethod::Signal)
            continue;
        // Each signal goes to a method of its own behind those of QObject; only qt_metacall()
        // knows them.
        const auto slot = QObject::staticMetaObject.methodCount() + int(m_signals.size());
        if (!QMetaObject::connect(sender, i, this, slot, Qt::DirectConnection))
            qFatal("Cannot listen to %s", method.methodSignature().constData());
        m_signals.append(method);
    }
}

QStringList SignalSequence::withoutRepeats(QStringList texts)
{
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    return texts;
}

qsizetype SignalSequence::count(const QString &signalName) const
{
    return std::count_if(m_texts.cbegin(), m_texts.cend(), [&signalName](const QString &text) {
        return text.startsWith(signalName + u'(');
    });
}

bool SignalSequence::waitFor(const QString &signalName, qsizetype times)
{
    return waitUntil([&] { return count(signalName) >= times; });
}

bool SignalSequence::waitUntil(const std::function<bool()> &condition)
{
    // Not QTest::qWaitFor(), which sleeps 10 ms between any two events: a transfer has many.
    QEventLoop loop;
    QTimer patience;
    patience.setSingleShot(true);
    connect(&patience, &QTimer::timeout, &loop, [&loop] { loop.exit(1); });
    patience.start(kPatience);

    m_wait = &loop;
    int timedOut = 0;
    while (!condition() && !timedOut)
        timedOut = loop.exec();
    m_wait = nullptr;
    return condition();
}

int SignalSequence::qt_metacall(QMetaObject::Call call, int id, void **arguments)
{
    id = QObject::qt_metacall(call, id, arguments);
    if (id < 0 || call != QMetaObject::InvokeMetaMethod)
        return id;
    record(m_signals.at(id), arguments);
    return -1;
}

void SignalSequence::record(const QMetaMethod &signal, void **arguments)
{
    QStringList values;
    for (int i = 0; i < signal.parameterCount(); ++i)
        values.append(textOf(QVariant(signal.parameterMetaType(i), arguments[i + 1])));
    QString text = QString::fromLatin1(signal.name()) + u'(' + values.join(u", "_s) + u')';
    if (QThread::currentThread() != thread())
        text += u" on another thread"_s;
    m_texts.append(text);
    if (m_wait)
        m_wait->quit();
    if (m_action)
        m_action();
}

#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QStringList>

#include <functional>

class QEventLoop;

/// Records every signal that an object's own class declares, in the order of emission, as texts:
///   progressChanged(100, "Prêt à jouer !")
/// A whole sequence is then compared at once, and no signal goes unnoticed.
class SignalSequence : public QObject // no Q_OBJECT: see qt_metacall()
{
public:
    explicit SignalSequence(QObject *sender);

    const QStringList &texts() const { return m_texts; }
    /// The texts, with those that follow an equal one left out: how often a transfer reports the
    /// same figures is the network's business.
    QStringList withoutRepeats() const { return withoutRepeats(m_texts); }
    static QStringList withoutRepeats(QStringList texts);
    QString last() const { return m_texts.isEmpty() ? QString() : m_texts.last(); }
    /// How many times the signal of this name was emitted.
    qsizetype count(const QString &signalName) const;
    void clear() { m_texts.clear(); }

    /// Calls it within each signal, when last() knows that.
    void atEach(const std::function<void()> &action) { m_action = action; }

    /// Waits until the signal of this name was emitted `times` times altogether.
    bool waitFor(const QString &signalName, qsizetype times = 1);
    /// The same for a condition that only a signal fulfils.
    bool waitUntil(const std::function<bool()> &condition);

    int qt_metacall(QMetaObject::Call call, int id, void **arguments) override;

private:
    void record(const QMetaMethod &signal, void **arguments);

    QList<QMetaMethod> m_signals;
    QStringList m_texts;
    std::function<void()> m_action;
    QEventLoop *m_wait = nullptr; // while waitFor() runs
};

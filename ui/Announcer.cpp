#include "ui/Announcer.h"

#include "ui/WindowsExtras.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QTimer>
#include <QWidget>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

// A reader on a busy machine asks late what it is that appeared.
constexpr auto kAnnouncementEnd = 30s;

/// A notification, to readers. Each announcement has one of its own, since the next may be there
/// when they ask for the words of the last.
class AccessibleAnnouncement : public QAccessibleObject
{
public:
    AccessibleAnnouncement(QObject *announcement, QWidget *window, const QString &text)
        : QAccessibleObject(announcement)
        , m_window(window)
        , m_text(text)
    {
    }

    QAccessible::Role role() const override { return QAccessible::Notification; }
    QAccessible::State state() const override { return {}; }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? m_text : QString();
    }

    QAccessibleInterface *parent() const override
    {
        return QAccessible::queryAccessibleInterface(m_window);
    }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }

private:
    QWidget *m_window;
    QString m_text;
};

} // namespace

Announcer::Announcer(QWidget *window)
    : QObject(window)
    , m_window(window)
{
}

void Announcer::announce(const QString &text)
{
    if (!QAccessible::isActive())
        return;
    auto *announcement = new QObject(this);
    auto *spoken = new AccessibleAnnouncement(announcement, m_window, text);
    QAccessible::registerAccessibleInterface(spoken); // which deletes it with the object
    // Readers speak a notification when it appears.
    QAccessibleEvent appeared(spoken, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appeared);
    QTimer::singleShot(kAnnouncementEnd, announcement, &QObject::deleteLater);
    WindowsExtras::notifyReaders(m_window, text);
}

void Announcer::announceProgress(int percent)
{
    const int tenths = percent / 10;
    if (tenths == m_tenths)
        return;
    m_tenths = tenths;
    if (tenths > 0 && tenths < 10)
        announce(u"%1 %"_s.arg(tenths * 10));
}

#include "ui/AccessibleParts.h"

#include "ui/RoundedProgressBar.h"

#include <QAccessibleWidget>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

/// As Qt's own, but busy when the bar is.
class AccessibleProgressBar : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit AccessibleProgressBar(RoundedProgressBar *bar)
        : QAccessibleWidget(bar, QAccessible::ProgressBar)
        , m_bar(bar)
    {
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface *>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.busy = isBusy();
        state.readOnly = true;
        return state;
    }

    QString text(QAccessible::Text kind) const override
    {
        if (kind == QAccessible::Value)
            return isBusy() ? QString() : m_bar->text();
        return QAccessibleWidget::text(kind);
    }

    // A bar that was never set is at one less than its least.
    QVariant currentValue() const override { return std::max(m_bar->value(), m_bar->minimum()); }
    void setCurrentValue(const QVariant &) override {}
    QVariant minimumValue() const override { return m_bar->minimum(); }
    QVariant maximumValue() const override { return m_bar->maximum(); }
    QVariant minimumStepSize() const override { return 1; }

private:
    bool isBusy() const { return m_bar->minimum() == m_bar->maximum(); }

    RoundedProgressBar *m_bar;
};

QAccessibleInterface *make(const QString &, QObject *object)
{
    if (auto *bar = dynamic_cast<RoundedProgressBar *>(object))
        return new AccessibleProgressBar(bar);
    return nullptr;
}

} // namespace

void AccessibleParts::install()
{
    QAccessible::installFactory(make); // a second time does nothing
}

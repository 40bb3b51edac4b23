#include "ui/Announcer.h"

#include <QAccessible>

#ifdef Q_OS_WIN
#include <oleauto.h>
#include <qt_windows.h>
#include <unknwn.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

#ifdef Q_OS_WIN
/// Qt 6.4 has no notifications for UI Automation, and Windows itself only since its version 10:
/// they are looked for at run time.
void notifySystem(const QWidget *window, const QString &text)
{
    if (!window->testAttribute(Qt::WA_WState_Created))
        return;
    static const HMODULE core =
        LoadLibraryExW(L"uiautomationcore.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!core)
        return;
    const auto function = [](const char *name) {
        return reinterpret_cast<void (*)()>(GetProcAddress(core, name));
    };
    // Written out, since the headers of some compilers lack the one or cannot be read in C++: a
    // provider, the notification's kind, its processing, its words, its activity.
    using HostProvider = HRESULT(WINAPI *)(HWND, IUnknown **);
    using RaiseNotification = HRESULT(WINAPI *)(IUnknown *, int, int, BSTR, BSTR);
    static const auto hostProvider =
        reinterpret_cast<HostProvider>(function("UiaHostProviderFromHwnd"));
    static const auto raiseNotification =
        reinterpret_cast<RaiseNotification>(function("UiaRaiseNotificationEvent"));
    IUnknown *provider = nullptr;
    if (!hostProvider || !raiseNotification ||
        FAILED(hostProvider(reinterpret_cast<HWND>(window->winId()), &provider)) || !provider) {
        return;
    }

    constexpr int kOtherKind = 4;
    constexpr int kAll = 2; // none takes the place of another
    const BSTR words = SysAllocString(reinterpret_cast<const wchar_t *>(text.utf16()));
    const BSTR activity = SysAllocString(L"veyra");
    raiseNotification(provider, kOtherKind, kAll, words, activity);
    SysFreeString(activity);
    SysFreeString(words);
    provider->Release();
}
#else
void notifySystem(const QWidget *, const QString &) {}
#endif

} // namespace

Announcer::Announcer(QWidget *window)
    : QWidget(window)
{
    // Readers pass over what is not visible.
    setGeometry(0, 0, 1, 1);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void Announcer::announce(const QString &text)
{
    setAccessibleName(text);
    if (!QAccessible::isActive())
        return;
    // Readers speak a notification when it appears.
    QAccessibleEvent appeared(this, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appeared);
    notifySystem(window(), text);
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

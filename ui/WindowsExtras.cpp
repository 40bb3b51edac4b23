#include "ui/WindowsExtras.h"

#include <QtGlobal>

#ifdef Q_OS_WIN

#include <QApplication>
#include <QEvent>
#include <QString>
#include <QWidget>

#include <qt_windows.h>

#include <oleauto.h>

namespace {

/// Looked for at run time, since older versions of Windows lack it; null then. From the system's
/// folder alone, never from the launcher's.
template <typename Function> Function systemFunction(const wchar_t *library, const char *name)
{
    const HMODULE module = LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!module)
        return nullptr;
    const auto address = reinterpret_cast<void (*)()>(GetProcAddress(module, name));
    return reinterpret_cast<Function>(address);
}

void darkenTitleBar(const QWidget *window)
{
    using SetAttribute = HRESULT(WINAPI *)(HWND, DWORD, LPCVOID, DWORD);
    static const auto setAttribute =
        systemFunction<SetAttribute>(L"dwmapi.dll", "DwmSetWindowAttribute");
    if (!setAttribute)
        return;
    constexpr DWORD kUseImmersiveDarkMode = 20; // refused before version 2004 of Windows 10
    const BOOL dark = TRUE;
    setAttribute(reinterpret_cast<HWND>(window->winId()), kUseImmersiveDarkMode, &dark,
                 sizeof dark);
}

class TitleBarFilter : public QObject
{
public:
    using QObject::QObject;

    /// The system's window is there when Qt tells that it is about to be shown.
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Show && !event->spontaneous() && watched->isWidgetType()) {
            const auto *widget = static_cast<QWidget *>(watched);
            if (widget->windowType() == Qt::Window || widget->windowType() == Qt::Dialog)
                darkenTitleBar(widget);
        }
        return false;
    }
};

} // namespace

void WindowsExtras::darkenTitleBars()
{
    qApp->installEventFilter(new TitleBarFilter(qApp));
}

void WindowsExtras::notifyReaders(const QWidget *window, const QString &text)
{
    if (!window->testAttribute(Qt::WA_WState_Created))
        return;
    // Written out, since the headers of some compilers lack the one or cannot be read in C++: a
    // provider, the notification's kind, its processing, its words, its activity.
    using HostProvider = HRESULT(WINAPI *)(HWND, IUnknown **);
    using RaiseNotification = HRESULT(WINAPI *)(IUnknown *, int, int, BSTR, BSTR);
    static const auto hostProvider =
        systemFunction<HostProvider>(L"uiautomationcore.dll", "UiaHostProviderFromHwnd");
    static const auto raiseNotification =
        systemFunction<RaiseNotification>(L"uiautomationcore.dll", "UiaRaiseNotificationEvent");
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

void WindowsExtras::darkenTitleBars() {}
void WindowsExtras::notifyReaders(const QWidget *, const QString &) {}

#endif

#include "updater/ProgressView.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <commctrl.h>

namespace {

constexpr const wchar_t *kTitle = L"Mise à jour de Veyra Launcher";
constexpr const wchar_t *kClassName = L"VeyraLauncherUpdate";
constexpr UINT kSetStep = WM_APP;
constexpr UINT kSetPercent = WM_APP + 1;

// For a screen of 96 dots an inch.
constexpr int kDotsPerInch = 96;
constexpr int kWidth = 420;
constexpr int kMargin = 16;
constexpr int kTextHeight = 20;
constexpr int kBarHeight = 16;

std::wstring utf16(const std::string &text)
{
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), int(text.size()), nullptr, 0);
    std::wstring result(size_t(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), int(text.size()), result.data(), size);
    return result;
}

/// A label and a bar. It lives in the thread that makes it, until run() returns.
class Window
{
public:
    Window();
    ~Window();
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    HWND handle() const { return m_window; }
    static void run();

private:
    static LRESULT CALLBACK handleMessage(HWND window, UINT message, WPARAM first, LPARAM second);
    int scaled(int length) const { return ::MulDiv(length, m_dotsPerInch, kDotsPerInch); }
    void createControls();
    void setStep(const std::wstring &text);
    void setPercent(int percent);

    int m_dotsPerInch = kDotsPerInch;
    HFONT m_font = nullptr;
    HWND m_window = nullptr;
    HWND m_label = nullptr;
    HWND m_bar = nullptr;
};

Window::Window()
{
    HDC const screen = ::GetDC(nullptr);
    m_dotsPerInch = ::GetDeviceCaps(screen, LOGPIXELSX);
    ::ReleaseDC(nullptr, screen);

    HINSTANCE const program = ::GetModuleHandleW(nullptr);
    WNDCLASSW type{};
    type.lpfnWndProc = &Window::handleMessage;
    type.hInstance = program;
    type.hIcon = ::LoadIconW(program, L"IDI_ICON1");
    type.hCursor = ::LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    type.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    type.lpszClassName = kClassName;
    ::RegisterClassW(&type);

    constexpr DWORD kStyle = WS_OVERLAPPED | WS_CAPTION;
    RECT area{0, 0, scaled(kWidth), scaled(3 * kMargin + kTextHeight + kBarHeight)};
    ::AdjustWindowRect(&area, kStyle, FALSE);
    const int width = area.right - area.left;
    const int height = area.bottom - area.top;
    m_window = ::CreateWindowExW(0, kClassName, kTitle, kStyle,
                                 (::GetSystemMetrics(SM_CXSCREEN) - width) / 2,
                                 (::GetSystemMetrics(SM_CYSCREEN) - height) / 2, width, height,
                                 nullptr, nullptr, program, this);
    if (!m_window)
        return;
    createControls();
    ::ShowWindow(m_window, SW_SHOWNORMAL);
    ::SetForegroundWindow(m_window);
}

Window::~Window()
{
    if (m_window)
        ::DestroyWindow(m_window);
    if (m_font)
        ::DeleteObject(m_font);
}

void Window::createControls()
{
    // Neither is in the import table, where Windows would look for it beside the program first. The
    // controls ask for the theme by its name alone: it is there already then.
    ::LoadLibraryExW(L"uxtheme.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    HMODULE const controls =
        ::LoadLibraryExW(L"comctl32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (controls) {
        using Initialise = BOOL(WINAPI *)(const INITCOMMONCONTROLSEX *);
        const INITCOMMONCONTROLSEX wanted{sizeof wanted, ICC_PROGRESS_CLASS};
        if (const FARPROC address = ::GetProcAddress(controls, "InitCommonControlsEx"))
            reinterpret_cast<Initialise>(reinterpret_cast<void *>(address))(&wanted);
    }

    const int width = scaled(kWidth - 2 * kMargin);
    m_label = ::CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE | SS_ENDELLIPSIS,
                                scaled(kMargin), scaled(kMargin), width, scaled(kTextHeight),
                                m_window, nullptr, nullptr, nullptr);
    m_bar = ::CreateWindowExW(0, PROGRESS_CLASSW, L"", WS_CHILD | WS_VISIBLE | PBS_MARQUEE,
                              scaled(kMargin), scaled(2 * kMargin + kTextHeight), width,
                              scaled(kBarHeight), m_window, nullptr, nullptr, nullptr);
    ::SendMessageW(m_bar, PBM_SETMARQUEE, TRUE, 0);

    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof metrics;
    if (::SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0)) {
        m_font = ::CreateFontIndirectW(&metrics.lfMessageFont);
        ::SendMessageW(m_label, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), TRUE);
    }
}

void Window::run()
{
    MSG message{};
    while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
}

void Window::setStep(const std::wstring &text)
{
    ::SetWindowTextW(m_label, text.c_str());
    // Only what is counted has an end.
    ::SetWindowLongPtrW(m_bar, GWL_STYLE, WS_CHILD | WS_VISIBLE | PBS_MARQUEE);
    ::SendMessageW(m_bar, PBM_SETMARQUEE, TRUE, 0);
}

void Window::setPercent(int percent)
{
    ::SendMessageW(m_bar, PBM_SETMARQUEE, FALSE, 0);
    ::SetWindowLongPtrW(m_bar, GWL_STYLE, WS_CHILD | WS_VISIBLE);
    ::SendMessageW(m_bar, PBM_SETPOS, WPARAM(percent), 0);
}

LRESULT CALLBACK Window::handleMessage(HWND window, UINT message, WPARAM first, LPARAM second)
{
    if (message == WM_NCCREATE) {
        const auto *const made = reinterpret_cast<const CREATESTRUCTW *>(second);
        ::SetWindowLongPtrW(window, GWLP_USERDATA,
                            reinterpret_cast<LONG_PTR>(made->lpCreateParams));
    }
    auto *const self = reinterpret_cast<Window *>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    switch (message) {
    case kSetStep:
        self->setStep(*reinterpret_cast<const std::wstring *>(second));
        return 0;
    case kSetPercent:
        self->setPercent(int(first));
        return 0;
    case WM_CLOSE:
        // There is nothing to break off: it ends by itself.
        return 0;
    case WM_QUERYENDSESSION:
        // The next start mends what is cut off here.
        return TRUE;
    default:
        return ::DefWindowProcW(window, message, first, second);
    }
}

/// A window with a thread of its own, so that it answers while files are moved.
class WindowView : public ProgressView
{
public:
    WindowView();
    ~WindowView() override;

    void showStep(const std::string &text) override;
    void showPercent(int percent) override;
    void showFailure(const std::string &text) override;

private:
    void close();

    std::mutex m_mutex;
    std::condition_variable m_isMade;
    bool m_isReady = false;
    HWND m_window = nullptr;
    DWORD m_threadId = 0;
    std::thread m_thread;
};

WindowView::WindowView()
{
    m_thread = std::thread([this] {
        const Window window;
        {
            const std::lock_guard lock(m_mutex);
            m_window = window.handle();
            m_threadId = ::GetCurrentThreadId();
            m_isReady = true;
        }
        m_isMade.notify_one();
        Window::run();
    });
    std::unique_lock lock(m_mutex);
    m_isMade.wait(lock, [this] { return m_isReady; });
}

WindowView::~WindowView()
{
    close();
}

void WindowView::close()
{
    if (!m_thread.joinable())
        return;
    ::PostThreadMessageW(m_threadId, WM_QUIT, 0, 0);
    m_thread.join();
    m_window = nullptr;
}

void WindowView::showStep(const std::string &text)
{
    const std::wstring wide = utf16(text);
    if (m_window)
        ::SendMessageW(m_window, kSetStep, 0, reinterpret_cast<LPARAM>(&wide));
}

void WindowView::showPercent(int percent)
{
    if (m_window)
        ::PostMessageW(m_window, kSetPercent, WPARAM(percent), 0);
}

void WindowView::showFailure(const std::string &text)
{
    close();
    ::MessageBoxW(nullptr, utf16(text).c_str(), kTitle, MB_OK | MB_ICONERROR | MB_SETFOREGROUND);
}

class SilentView : public ProgressView
{
public:
    void showStep(const std::string &) override {}
    void showPercent(int) override {}
    void showFailure(const std::string &) override {}
};

} // namespace

std::unique_ptr<ProgressView> createProgressView(bool silent)
{
    if (silent)
        return std::make_unique<SilentView>();
    return std::make_unique<WindowView>();
}

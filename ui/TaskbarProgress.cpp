#include "ui/TaskbarProgress.h"

#include <QGuiApplication>
#include <QProgressBar>

#ifdef Q_OS_WIN
#include <qt_windows.h>
#include <shobjidl.h>
#endif

TaskbarProgress::TaskbarProgress(QProgressBar *bar)
    : QObject(bar)
    , m_bar(bar)
{
    connect(bar, &QProgressBar::valueChanged, this, &TaskbarProgress::follow);
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state == Qt::ApplicationActive && m_look == Look::Failed)
                    show(Look::Plain);
            });
}

/// A bar that is full or empty says nothing: neither is on its way.
void TaskbarProgress::follow()
{
    const int done = m_bar->value() - m_bar->minimum();
    const int all = m_bar->maximum() - m_bar->minimum();
    if (all <= 0)
        show(Look::Busy);
    else if (done > 0 && done < all)
        show(Look::Partial, 100 * done / all);
    else
        show(Look::Plain);
}

void TaskbarProgress::end()
{
    show(Look::Plain);
}

void TaskbarProgress::fail()
{
    if (QGuiApplication::applicationState() == Qt::ApplicationActive)
        show(Look::Plain);
    else
        show(Look::Failed, 100);
}

void TaskbarProgress::show(Look look, int percent)
{
    if (look == m_look && percent == m_percent)
        return;
    m_look = look;
    m_percent = percent;
    tellSystem();
}

#ifdef Q_OS_WIN

TaskbarProgress::~TaskbarProgress()
{
    if (m_taskbar)
        m_taskbar->Release();
}

/// Only shows: where the system refuses, there is nothing to be done.
void TaskbarProgress::tellSystem()
{
    const QWidget *window = m_bar->window();
    if (!window->testAttribute(Qt::WA_WState_Created))
        return;
    if (!m_taskbar) {
        if (FAILED(CoCreateInstance(__uuidof(TaskbarList), nullptr, CLSCTX_INPROC_SERVER,
                                    IID_PPV_ARGS(&m_taskbar)))) {
            m_taskbar = nullptr;
            return;
        }
        m_taskbar->HrInit();
    }

    const auto button = reinterpret_cast<HWND>(window->winId());
    switch (m_look) {
    case Look::Plain:
        m_taskbar->SetProgressState(button, TBPF_NOPROGRESS);
        return;
    case Look::Busy:
        m_taskbar->SetProgressState(button, TBPF_INDETERMINATE);
        return;
    case Look::Partial:
        m_taskbar->SetProgressState(button, TBPF_NORMAL);
        break;
    case Look::Failed:
        m_taskbar->SetProgressState(button, TBPF_ERROR);
        break;
    }
    m_taskbar->SetProgressValue(button, ULONGLONG(m_percent), 100);
}

#else

TaskbarProgress::~TaskbarProgress() = default;

void TaskbarProgress::tellSystem() {}

#endif

#include "tests/support/BoxAnswers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QProgressBar>
#include <QTest>

#include <windows.h>

#include <shobjidl.h>

#include <memory>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

QString nameOf(TBPFLAG state)
{
    switch (state) {
    case TBPF_NOPROGRESS:
        return u"plain"_s;
    case TBPF_INDETERMINATE:
        return u"busy"_s;
    case TBPF_NORMAL:
        return u"normal"_s;
    case TBPF_ERROR:
        return u"failed"_s;
    default:
        return u"state %1"_s.arg(int(state));
    }
}

QT_WARNING_PUSH
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor") // no interface of COM has a destructor

/// Stands between the launcher and the system's task bar: hands everything on and takes notes.
class TaskbarWitness : public ITaskbarList3
{
public:
    explicit TaskbarWitness(ITaskbarList3 *system)
        : m_system(system)
    {
    }
    virtual ~TaskbarWitness() = default;
    Q_DISABLE_COPY_MOVE(TaskbarWitness)

    QStringList notes; // what the button was told since they were taken
    QStringList faults;
    int made = 0;
    int inUse = 0;
    HWND window = nullptr;

    HRESULT WINAPI QueryInterface(REFIID id, void **result) override
    {
        if (!IsEqualIID(id, __uuidof(ITaskbarList3)) && !IsEqualIID(id, IID_IUnknown))
            return E_NOINTERFACE;
        AddRef();
        *result = static_cast<ITaskbarList3 *>(this);
        return S_OK;
    }
    ULONG WINAPI AddRef() override { return ULONG(++inUse); }
    ULONG WINAPI Release() override { return ULONG(--inUse); }

    HRESULT WINAPI HrInit() override { return handedOn(m_system->HrInit()); }
    HRESULT WINAPI SetProgressValue(HWND button, ULONGLONG done, ULONGLONG all) override
    {
        window = button;
        notes.append(u"%1/%2"_s.arg(done).arg(all));
        return handedOn(m_system->SetProgressValue(button, done, all));
    }
    HRESULT WINAPI SetProgressState(HWND button, TBPFLAG state) override
    {
        window = button;
        notes.append(nameOf(state));
        return handedOn(m_system->SetProgressState(button, state));
    }

    HRESULT WINAPI AddTab(HWND) override { return unwanted(); }
    HRESULT WINAPI DeleteTab(HWND) override { return unwanted(); }
    HRESULT WINAPI ActivateTab(HWND) override { return unwanted(); }
    HRESULT WINAPI SetActiveAlt(HWND) override { return unwanted(); }
    HRESULT WINAPI MarkFullscreenWindow(HWND, BOOL) override { return unwanted(); }
    HRESULT WINAPI RegisterTab(HWND, HWND) override { return unwanted(); }
    HRESULT WINAPI UnregisterTab(HWND) override { return unwanted(); }
    HRESULT WINAPI SetTabOrder(HWND, HWND) override { return unwanted(); }
    HRESULT WINAPI SetTabActive(HWND, HWND, DWORD) override { return unwanted(); }
    HRESULT WINAPI ThumbBarAddButtons(HWND, UINT, LPTHUMBBUTTON) override { return unwanted(); }
    HRESULT WINAPI ThumbBarUpdateButtons(HWND, UINT, LPTHUMBBUTTON) override { return unwanted(); }
    HRESULT WINAPI ThumbBarSetImageList(HWND, HIMAGELIST) override { return unwanted(); }
    HRESULT WINAPI SetOverlayIcon(HWND, HICON, LPCWSTR) override { return unwanted(); }
    HRESULT WINAPI SetThumbnailTooltip(HWND, LPCWSTR) override { return unwanted(); }
    HRESULT WINAPI SetThumbnailClip(HWND, RECT *) override { return unwanted(); }

private:
    HRESULT handedOn(HRESULT result)
    {
        if (FAILED(result))
            faults.append(u"the system says %1"_s.arg(ulong(result), 8, 16, QChar(u'0')));
        return result;
    }
    HRESULT unwanted()
    {
        faults.append(u"an unwanted call"_s);
        return E_NOTIMPL;
    }

    ITaskbarList3 *m_system;
};

/// Has the witness take the system's place in this process.
class WitnessFactory : public IClassFactory
{
public:
    explicit WitnessFactory(TaskbarWitness *witness)
        : m_witness(witness)
    {
    }
    virtual ~WitnessFactory() = default;
    Q_DISABLE_COPY_MOVE(WitnessFactory)

    HRESULT WINAPI QueryInterface(REFIID id, void **result) override
    {
        if (!IsEqualIID(id, IID_IClassFactory) && !IsEqualIID(id, IID_IUnknown))
            return E_NOINTERFACE;
        *result = static_cast<IClassFactory *>(this);
        return S_OK;
    }
    ULONG WINAPI AddRef() override { return 2; } // lives as long as the test
    ULONG WINAPI Release() override { return 1; }
    HRESULT WINAPI LockServer(BOOL) override { return S_OK; }
    HRESULT WINAPI CreateInstance(IUnknown *, REFIID id, void **result) override
    {
        ++m_witness->made;
        return m_witness->QueryInterface(id, result);
    }

private:
    TaskbarWitness *m_witness;
};

QT_WARNING_POP

} // namespace

/// The launcher's button in the task bar, by way of the system's own interface.
class TestTaskbarProgress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void theSystemIsNotAskedBeforeThereIsSomethingToShow();
    void followsTheBar();
    void everyChangeIsToldOnce();
    void aFailureIsRedUntilThePlayerComesBack();
    void aFailureBeforeThePlayersEyesIsNotRed();
    void aFailureWithABoxIsRedWhileNobodyIsThere();

private:
    QStringList newNotes() { return std::exchange(m_witness->notes, {}); }
    void turnAway();

    ITaskbarList3 *m_system = nullptr;
    std::unique_ptr<TaskbarWitness> m_witness;
    std::unique_ptr<WitnessFactory> m_factory;
    DWORD m_registration = 0;
    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestTaskbarProgress::initTestCase()
{
    QCOMPARE(QGuiApplication::platformName(), u"windows"_s);
    const HRESULT made = CoCreateInstance(__uuidof(TaskbarList), nullptr, CLSCTX_INPROC_SERVER,
                                          IID_PPV_ARGS(&m_system));
    QCOMPARE(made, S_OK);
    m_witness = std::make_unique<TaskbarWitness>(m_system);
    m_factory = std::make_unique<WitnessFactory>(m_witness.get());
    QCOMPARE(CoRegisterClassObject(__uuidof(TaskbarList), m_factory.get(), CLSCTX_INPROC_SERVER,
                                   REGCLS_MULTIPLEUSE, &m_registration),
             S_OK);
}

void TestTaskbarProgress::cleanupTestCase()
{
    CoRevokeClassObject(m_registration);
    m_system->Release();
}

void TestTaskbarProgress::init()
{
    m_witness->made = 0;
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->open();
    QVERIFY(QTest::qWaitForWindowActive(m_launcher->window()));
    newNotes();
}

void TestTaskbarProgress::cleanup()
{
    m_launcher.reset();
    QCOMPARE(m_witness->inUse, 0);
    QCOMPARE(m_witness->faults, QStringList());
}

void TestTaskbarProgress::turnAway()
{
    m_launcher->window()->showMinimized();
    QTRY_VERIFY(QGuiApplication::applicationState() != Qt::ApplicationActive);
}

void TestTaskbarProgress::theSystemIsNotAskedBeforeThereIsSomethingToShow()
{
    m_launcher->installClient();
    m_launcher->call("onLauncherUpdateCheckFinished", false, u"1.0.0"_s, QString(), false);
    QCOMPARE(m_launcher->progressBar()->value(), 100);
    QCOMPARE(m_witness->made, 0);
    m_launcher->call("onClientDownloadProgress", 1, u"Un"_s);
    m_launcher->call("onClientDownloadProgress", 2, u"Deux"_s);
    QCOMPARE(m_witness->made, 1);
}

void TestTaskbarProgress::followsTheBar()
{
    m_launcher->call("onClientDownloadProgress", 0, u"Zéro"_s);
    QCOMPARE(newNotes(), QStringList());
    m_launcher->call("onClientDownloadProgress", 42, u"Un"_s);
    QCOMPARE(newNotes(), QStringList({u"normal"_s, u"42/100"_s}));
    QCOMPARE(m_witness->window, reinterpret_cast<HWND>(m_launcher->window()->winId()));
    m_launcher->call("onClientDownloadProgress", -1, u"Deux"_s); // nobody knows
    QCOMPARE(newNotes(), QStringList{u"busy"_s});
    m_launcher->call("onClientDownloadProgress", 99, u"Trois"_s);
    QCOMPARE(newNotes(), QStringList({u"plain"_s, u"normal"_s, u"99/100"_s}));
    m_launcher->call("onClientDownloadProgress", 100, u"Quatre"_s);
    QCOMPARE(newNotes(), QStringList{u"plain"_s});
    m_launcher->call("onClientExtractionStarted");
    QCOMPARE(newNotes(), QStringList{u"busy"_s});
    m_launcher->call("onClientExtractionFinished", true, u"Fini"_s);
    QCOMPARE(newNotes(), QStringList{u"plain"_s});
    m_launcher->call("onUpdateProgress", 50, u"Cinq"_s);
    QCOMPARE(newNotes(), QStringList({u"normal"_s, u"50/100"_s}));
    m_launcher->call("onUpdateFinished", true, u"Fini"_s);
    QCOMPARE(newNotes(), QStringList{u"plain"_s});
}

void TestTaskbarProgress::everyChangeIsToldOnce()
{
    for (int i = 0; i < 3; ++i)
        m_launcher->call("onLauncherDownloadProgress", 42, u"Un"_s);
    QCOMPARE(newNotes(), QStringList({u"normal"_s, u"42/100"_s}));
    for (int i = 0; i < 3; ++i)
        m_launcher->call("onLauncherDownloadProgress", -1, u"Deux"_s);
    QCOMPARE(newNotes(), QStringList{u"busy"_s});
}

void TestTaskbarProgress::aFailureIsRedUntilThePlayerComesBack()
{
    m_launcher->call("onUpdateProgress", 50, u"Un"_s);
    turnAway();
    newNotes();
    m_launcher->call("onUpdateFinished", false, u"Raté"_s);
    QCOMPARE(newNotes(), QStringList({u"failed"_s, u"100/100"_s}));
    m_launcher->window()->showNormal();
    m_launcher->window()->activateWindow();
    QTRY_COMPARE(m_witness->notes, QStringList{u"plain"_s});
    QCOMPARE(m_launcher->progressBar()->value(), 50); // such a failure leaves the bar alone
}

void TestTaskbarProgress::aFailureBeforeThePlayersEyesIsNotRed()
{
    m_launcher->call("onUpdateProgress", 50, u"Un"_s);
    newNotes();
    m_launcher->call("onUpdateFinished", false, u"Raté"_s);
    QCOMPARE(newNotes(), QStringList{u"plain"_s});
}

void TestTaskbarProgress::aFailureWithABoxIsRedWhileNobodyIsThere()
{
    m_launcher->call("onClientExtractionStarted");
    turnAway();
    newNotes();
    BoxAnswers boxes;
    m_launcher->call("onClientExtractionFinished", false, u"Raté"_s);
    QCOMPARE(newNotes().mid(0, 3), QStringList({u"plain"_s, u"failed"_s, u"100/100"_s}));
}

VEYRA_WIDGET_TEST_MAIN(TestTaskbarProgress)
#include "TestTaskbarProgress.moc"

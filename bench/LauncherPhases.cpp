#include "bench/LoopGap.h"
#include "bench/Observer.h"

#include "install/ClientDownloader.h"
#include "update/Updater.h"

#include <QElapsedTimer>
#include <QEvent>
#include <QPushButton>
#include <QTimer>
#include <QWidget>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kSettlingTime = 300ms;

/// Follows the start-up chain from outside, by the signals that its workers emit, and takes time,
/// memory and the event loop's longest gap of each phase.
class LauncherPhases : public QObject
{
public:
    LauncherPhases(Observer &observer, QWidget &window)
        : QObject(&window)
        , m_observer(observer)
    {
        watchReady(window.findChild<QPushButton *>(u"playButton"_s));
        for (QObject *worker : window.children()) {
            if (auto *downloader = qobject_cast<ClientDownloader *>(worker))
                watchInstallation(downloader);
            if (auto *updater = qobject_cast<Updater *>(worker))
                watchVerification(updater);
        }
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::EnabledChange) {
            watched->removeEventFilter(this);
            QTimer::singleShot(kSettlingTime, this, &LauncherPhases::onReady);
        }
        return false;
    }

private:
    void watchReady(QPushButton *playButton)
    {
        if (goalIs("ready"_L1) || goalIs("idle"_L1))
            playButton->installEventFilter(this);
    }

    void onReady()
    {
        m_observer.noteMemory(u"ready"_s);
        if (goalIs("ready"_L1))
            m_observer.end();
        m_observer.print(); // and is quiet from now on
    }

    void watchInstallation(ClientDownloader *downloader)
    {
        connect(downloader, &ClientDownloader::progressChanged, this,
                [this] { beginOnce(u"download"_s); });
        connect(downloader, &ClientDownloader::downloadFinished, this,
                [this](bool success) { endPhase(u"download"_s, success, "downloaded"_L1); });
        connect(downloader, &ClientDownloader::extractionStarted, this,
                [this] { begin(u"unpack"_s); });
        connect(downloader, &ClientDownloader::extractionFinished, this,
                [this](bool success) { endPhase(u"unpack"_s, success, "unpacked"_L1); });
    }

    void watchVerification(Updater *updater)
    {
        connect(updater, &Updater::progressChanged, this, [this] {
            // First the manifest is asked for, then comes its answer, then one report per file.
            ++m_verificationReports;
            if (m_verificationReports == 1)
                begin(u"manifest"_s);
            if (m_verificationReports == 2) {
                endPhase(u"manifest"_s, true, {});
                begin(u"verify"_s);
            }
        });
        connect(updater, &Updater::finished, this, [this](bool success) {
            m_observer.note(u"verify_reports"_s, m_verificationReports - 3);
            endPhase(u"verify"_s, success && m_verificationReports > 2, "verified"_L1);
        });
    }

    static bool goalIs(QLatin1StringView goal) { return Observer::goal() == goal; }

    void beginOnce(const QString &phase)
    {
        if (m_phase.isEmpty())
            begin(phase);
    }

    void begin(const QString &phase)
    {
        m_phase = phase;
        m_residentBefore = Observer::memory().resident;
        Observer::resetPeak();
        m_gap.start();
        m_elapsed.start();
    }

    void endPhase(const QString &phase, bool success, QLatin1StringView goal)
    {
        const double seconds = static_cast<double>(m_elapsed.nsecsElapsed()) / 1e9;
        m_observer.note(phase + "_longest_gap_ms"_L1, m_gap.stop());
        m_observer.note(phase + "_s"_L1, seconds);
        m_observer.note(phase + "_growth_kb"_L1,
                        static_cast<double>(Observer::memory().peak - m_residentBefore));
        if (!success)
            m_observer.end(EXIT_FAILURE);
        if (goalIs(goal))
            m_observer.end();
    }

    Observer &m_observer;
    LoopGap m_gap;
    QElapsedTimer m_elapsed;
    QString m_phase;
    qint64 m_residentBefore = 0;
    int m_verificationReports = 0;
};

} // namespace

void onFirstFrame(Observer &observer, QWidget &window)
{
    new LauncherPhases(observer, window);
}

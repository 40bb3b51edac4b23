#include "bench/Observer.h"

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QTimer>
#include <QWidget>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr QSize kWindowSize(1000, 700);
constexpr QPoint kLogoPosition(40, 30);
constexpr QSize kLogoBounds(300, 150);
constexpr QColor kVeil(0, 0, 0, 150);
constexpr auto kSettlingTime = 300ms;

/// A Qt program with the launcher's window and pictures, and nothing else. It scales them as the
/// launcher does, for the same pixels.
class BareWindow : public QWidget
{
public:
    BareWindow()
        : m_background(u":/images/background.png"_s)
        , m_logo(u":/images/logo.png"_s)
    {
        setFixedSize(kWindowSize);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        const QPixmap background =
            m_background.scaled(size(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        const QPixmap logo =
            m_logo.scaled(kLogoBounds, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        QPainter painter(this);
        painter.drawPixmap(QRectF(rect()), background, QRectF());
        painter.fillRect(rect(), kVeil);
        painter.drawPixmap(kLogoPosition, logo);
    }

private:
    QPixmap m_background;
    QPixmap m_logo;
};

} // namespace

void onFirstFrame(Observer &observer, QWidget &)
{
    QTimer::singleShot(kSettlingTime, &observer, [&observer] {
        observer.noteMemory(u"ready"_s);
        if (Observer::goal() == "ready"_L1)
            observer.end();
        observer.print();
    });
}

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    BareWindow window;
    window.show();
    return QApplication::exec();
}

#include "app/Identity.h"
#include "app/MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>

#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kRepaints = 40;
constexpr QSize kWindowSize(1000, 700);
constexpr QColor kVeil(0, 0, 0, 150);

/// Paints the launcher's background without keeping the scaled picture.
class ScalingWindow : public QWidget
{
public:
    ScalingWindow() { setFixedSize(kWindowSize); }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        const QPixmap scaled =
            m_background.scaled(size(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        painter.drawPixmap(QRectF(0, 0, width(), height()), scaled, QRectF());
        painter.fillRect(rect(), kVeil);
    }

private:
    QPixmap m_background{u":/images/background.png"_s};
};

/// Milliseconds for one repaint of `region`, children left out.
double repaintTime(QWidget &window, const QRect &region, QImage &picture)
{
    window.render(&picture, {}, region, {}); // what is kept for later is made now
    QElapsedTimer elapsed;
    elapsed.start();
    for (int i = 0; i < kRepaints; ++i)
        window.render(&picture, region.topLeft(), region, {});
    return static_cast<double>(elapsed.nsecsElapsed()) / 1e6 / kRepaints;
}

QImage blankPicture()
{
    const qreal ratio = qApp->devicePixelRatio();
    QImage picture(kWindowSize * ratio, QImage::Format_RGB32);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::black);
    return picture;
}

} // namespace

/// Prints the milliseconds of one repaint: the launcher's and the yardstick's, for the whole window
/// and for what lies under one button. Fails when the two do not paint the same.
int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    Identity::apply();
    MainWindow launcher;
    ScalingWindow yardstick;
    const QRect whole(QPoint(0, 0), kWindowSize);
    const QRect button(350, 560, 300, 70);

    QImage expected = blankPicture();
    QImage painted = blankPicture();
    yardstick.render(&expected, {}, whole, {});
    launcher.render(&painted, {}, whole, {});
    if (painted != expected) {
        std::fputs("The launcher's background differs from one that is scaled anew.\n", stderr);
        return EXIT_FAILURE;
    }

    std::printf("{\"whole\": [%.4f, %.4f], \"button\": [%.4f, %.4f]}\n",
                repaintTime(launcher, whole, painted), repaintTime(yardstick, whole, expected),
                repaintTime(launcher, button, painted), repaintTime(yardstick, button, expected));
    return EXIT_SUCCESS;
}

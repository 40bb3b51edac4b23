#include "app/MainWindow.h"

#include "ui/Colors.h"

#include <QFile>
#include <QLinearGradient>
#include <QPainter>
#include <QtConcurrentRun>
#include <QThreadPool>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr QColor kVeil(0, 0, 0, 150);
const auto kBackgroundFile = u":/images/background.png"_s;

/// The picture no larger than a window of that size shows it: 3.5 MB of pixels in place of 8.
QImage readBackground(QSize windowSize)
{
    const QImage picture(kBackgroundFile);
    if (picture.isNull())
        return {};
    return picture.scaled(windowSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
}

} // namespace

void MainWindow::paintEvent(QPaintEvent *event)
{
    if (backgroundSize != size()) { // a window manager may not keep to the fixed size
        startLoadingBackground();
        finishLoadingBackground();
    }
    QPainter painter(this);
    // The device's own pixel ratio: the window may be painted into a picture with another one.
    prepareBackdrop(painter.combinedTransform().m11());
    if (backdrop.isNull())
        paintBackground(painter);
    else
        painter.drawPixmap(0, 0, backdrop);
    QWidget::paintEvent(event);
}

/// All of the picture, squeezed into the window: neither cropped nor letter-boxed.
void MainWindow::paintBackground(QPainter &painter) const
{
    if (!backgroundPixmap.isNull()) {
        const QPixmap scaled = backgroundPixmap.scaled(size(), Qt::KeepAspectRatioByExpanding,
                                                       Qt::SmoothTransformation);
        painter.drawPixmap(QRectF(0, 0, width(), height()), scaled, QRectF());
    } else {
        QLinearGradient gradient(0, 0, 0, height());
        gradient.setColorAt(0.0, QColor(Colors::kDarkest));
        gradient.setColorAt(1.0, QColor(Colors::kGradientEnd));
        painter.fillRect(rect(), gradient);
    }
    painter.fillRect(rect(), kVeil);
}

/// Reading the picture takes longer than building the rest of the window: both are done at once.
void MainWindow::startLoadingBackground()
{
    backgroundSize = size();
    if (QFile::exists(kBackgroundFile))
        loadingBackground =
            QtConcurrent::run(QThreadPool::globalInstance(), readBackground, backgroundSize);
}

void MainWindow::finishLoadingBackground()
{
    if (loadingBackground.isValid())
        backgroundPixmap = QPixmap::fromImage(loadingBackground.takeResult());
}

/// The backdrop holds the very pixels that painting the background on a device with this pixel
/// ratio gives, so that a repaint need only copy them. Where the window's edges lie within pixels
/// of the device there is none.
void MainWindow::prepareBackdrop(qreal ratio)
{
    if (backdropSize == size() && backdropRatio == ratio)
        return;
    backdropSize = size();
    backdropRatio = ratio;
    backdrop = {};

    const QSizeF deviceSize = QSizeF(size()) * ratio;
    if (deviceSize.isEmpty() || deviceSize != QSizeF(deviceSize.toSize()))
        return;
    backdrop = QPixmap(deviceSize.toSize());
    backdrop.setDevicePixelRatio(ratio);
    QPainter painter(&backdrop);
    paintBackground(painter);
}

#include "app/MainWindow.h"

#include "ui/Colors.h"

#include <QLinearGradient>
#include <QPainter>

namespace {

constexpr QColor kVeil(0, 0, 0, 150);

} // namespace

void MainWindow::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    if (!backgroundPixmap.isNull()) {
        // The device's own pixel ratio: the window may be painted into a picture with another one.
        prepareBackdrop(painter.combinedTransform().m11());
        painter.drawPixmap(QRectF(0, 0, width(), height()), backdrop, QRectF());
    } else {
        QLinearGradient gradient(0, 0, 0, height());
        gradient.setColorAt(0.0, QColor(Colors::kDarkest));
        gradient.setColorAt(1.0, QColor(Colors::kGradientEnd));
        painter.fillRect(rect(), gradient);
    }
    painter.fillRect(rect(), kVeil);
    QWidget::paintEvent(event);
}

/// All of the picture, squeezed into the window: neither cropped nor letter-boxed. The backdrop holds
/// the very pixels that painting it on a device with this pixel ratio gives, so that a repaint need
/// only copy them.
void MainWindow::prepareBackdrop(qreal ratio)
{
    if (backgroundPixmap.isNull() || (backdropSize == size() && backdropRatio == ratio))
        return;
    backdropSize = size();
    backdropRatio = ratio;

    const QPixmap scaled = backgroundPixmap.scaled(size(), Qt::KeepAspectRatioByExpanding,
                                                   Qt::SmoothTransformation);
    const QSizeF deviceSize = QSizeF(size()) * ratio;
    if (deviceSize.isEmpty() || deviceSize != QSizeF(deviceSize.toSize())) {
        backdrop = scaled; // no whole pixels to copy: each repaint squeezes
        return;
    }
    backdrop = QPixmap(deviceSize.toSize());
    backdrop.setDevicePixelRatio(ratio);
    QPainter painter(&backdrop);
    painter.drawPixmap(QRectF(0, 0, width(), height()), scaled, QRectF());
}

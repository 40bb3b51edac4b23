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
        if (scaledFor != size()) {
            scaledBackground = backgroundPixmap.scaled(size(), Qt::KeepAspectRatioByExpanding,
                                                       Qt::SmoothTransformation);
            scaledFor = size();
        }
        // All of the picture, squeezed into the window: neither cropped nor letter-boxed.
        painter.drawPixmap(QRectF(0, 0, width(), height()), scaledBackground, QRectF());
    } else {
        QLinearGradient gradient(0, 0, 0, height());
        gradient.setColorAt(0.0, QColor(Colors::kDarkest));
        gradient.setColorAt(1.0, QColor(Colors::kGradientEnd));
        painter.fillRect(rect(), gradient);
    }
    painter.fillRect(rect(), kVeil);
    QWidget::paintEvent(event);
}

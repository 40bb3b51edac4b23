#include "ui/Backdrop.h"

#include "config/Colors.h"

#include <QFile>
#include <QLinearGradient>
#include <QPainter>
#include <QtConcurrentRun>
#include <QThreadPool>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr QColor kVeil(0, 0, 0, 150);
const auto kPictureFile = u":/images/background.png"_s;

QImage readPicture(QSize windowSize)
{
    const QImage picture(kPictureFile);
    if (picture.isNull())
        return {};
    return picture.scaled(windowSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
}

/// All of the picture, squeezed into the window: neither cropped nor letter-boxed.
void paintAnew(QPainter &painter, const QPixmap &picture, QSize windowSize)
{
    const QRect window(QPoint(), windowSize);
    if (!picture.isNull()) {
        const QPixmap scaled =
            picture.scaled(windowSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        painter.drawPixmap(QRectF(window), scaled, QRectF());
    } else {
        QLinearGradient gradient(0, 0, 0, windowSize.height());
        gradient.setColorAt(0.0, QColor(Colors::kDarkest));
        gradient.setColorAt(1.0, QColor(Colors::kGradientEnd));
        painter.fillRect(window, gradient);
    }
    painter.fillRect(window, kVeil);
}

} // namespace

void Backdrop::startLoading(QSize windowSize)
{
    m_loadedSize = windowSize;
    if (QFile::exists(kPictureFile))
        m_loading = QtConcurrent::run(QThreadPool::globalInstance(), readPicture, windowSize);
}

QPixmap Backdrop::takePicture()
{
    return m_loading.isValid() ? QPixmap::fromImage(m_loading.takeResult()) : QPixmap();
}

void Backdrop::paint(QPainter &painter, const QPixmap &picture, QSize windowSize)
{
    // The device's own pixel ratio: the window may be painted into a picture with another one.
    prepare(picture, windowSize, painter.combinedTransform().m11());
    if (m_painted.isNull())
        paintAnew(painter, picture, windowSize);
    else
        painter.drawPixmap(0, 0, m_painted);
}

/// Keeps the very pixels that painting on a device with this pixel ratio gives. Where the window's
/// edges lie within pixels of the device nothing is kept.
void Backdrop::prepare(const QPixmap &picture, QSize windowSize, qreal ratio)
{
    if (m_paintedSize == windowSize && m_paintedRatio == ratio)
        return;
    m_paintedSize = windowSize;
    m_paintedRatio = ratio;
    m_painted = {};

    const QSizeF deviceSize = QSizeF(windowSize) * ratio;
    if (deviceSize.isEmpty() || deviceSize != QSizeF(deviceSize.toSize()))
        return;
    m_painted = QPixmap(deviceSize.toSize());
    m_painted.setDevicePixelRatio(ratio);
    QPainter painter(&m_painted);
    paintAnew(painter, picture, windowSize);
}

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

/// How many pixels of a device with this ratio the window takes.
QSize devicePixels(QSize windowSize, qreal ratio)
{
    return (QSizeF(windowSize) * ratio).toSize();
}

QImage readPicture(QSize windowSize, qreal ratio)
{
    const QImage picture(kPictureFile);
    if (picture.isNull())
        return {};
    if (ratio == 1)
        return picture.scaled(windowSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    // Pixel for pixel what the device shows: painting, which does not smooth, has nothing to
    // squeeze.
    return picture.scaled(devicePixels(windowSize, ratio), Qt::IgnoreAspectRatio,
                          Qt::SmoothTransformation);
}

/// All of the picture, squeezed into the window: neither cropped nor letter-boxed.
void paintAnew(QPainter &painter, const QPixmap &picture, QSize windowSize)
{
    const QRect window(QPoint(), windowSize);
    if (!picture.isNull()) {
        painter.drawPixmap(QRectF(window), picture, QRectF());
    } else {
        QLinearGradient gradient(0, 0, 0, windowSize.height());
        gradient.setColorAt(0.0, QColor(Colors::kDarkest));
        gradient.setColorAt(1.0, QColor(Colors::kGradientEnd));
        painter.fillRect(window, gradient);
    }
    painter.fillRect(window, kVeil);
}

} // namespace

void Backdrop::startLoading(QSize windowSize, qreal ratio)
{
    m_windowSize = windowSize;
    m_ratio = ratio;
    m_painted = {};
    if (QFile::exists(kPictureFile)) {
        m_loading =
            QtConcurrent::run(QThreadPool::globalInstance(), readPicture, windowSize, ratio);
    }
}

QPixmap Backdrop::takePicture()
{
    return m_loading.isValid() ? QPixmap::fromImage(m_loading.takeResult()) : QPixmap();
}

bool Backdrop::isLoadedFor(QSize windowSize, qreal ratio) const
{
    return m_windowSize == windowSize && m_ratio == ratio;
}

qreal Backdrop::ratioOf(const QPainter &painter)
{
    return painter.combinedTransform().m11();
}

void Backdrop::paint(QPainter &painter, const QPixmap &picture)
{
    if (m_painted.isNull())
        prepare(picture);
    if (m_painted.isNull())
        paintAnew(painter, picture, m_windowSize);
    else
        painter.drawPixmap(0, 0, m_painted);
}

/// Keeps the very pixels that painting anew gives. Where the window's edges lie within pixels of
/// the device nothing is kept.
void Backdrop::prepare(const QPixmap &picture)
{
    const QSizeF deviceSize = QSizeF(m_windowSize) * m_ratio;
    if (deviceSize.isEmpty() || deviceSize != QSizeF(deviceSize.toSize()))
        return;
    m_painted = QPixmap(deviceSize.toSize());
    m_painted.setDevicePixelRatio(m_ratio);
    QPainter painter(&m_painted);
    paintAnew(painter, picture, m_windowSize);
}

#pragma once

#include <QFuture>
#include <QImage>
#include <QPixmap>
#include <QSize>

class QPainter;

/// What lies behind the widgets: the background picture, or a gradient where there is none, under a
/// dark veil. Reads the picture on a pool thread and keeps the result as painted, so that a repaint
/// need only copy it. GUI thread.
class Backdrop
{
public:
    /// Begins to read the picture for a window of this size, in logical pixels. Where there is no
    /// picture nothing is begun.
    void startLoading(QSize windowSize);

    /// Waits for the picture and returns it no larger than the window shows it: 3.5 MB of pixels in
    /// place of 8. Null where there is none or it cannot be read.
    QPixmap takePicture();

    /// The size that was given last.
    QSize loadedSize() const { return m_loadedSize; }

    /// Paints onto a window of this size, with `picture` being the one that takePicture() gave for
    /// it.
    void paint(QPainter &painter, const QPixmap &picture, QSize windowSize);

private:
    void prepare(const QPixmap &picture, QSize windowSize, qreal ratio);

    QFuture<QImage> m_loading; // valid from startLoading() to takePicture()
    QSize m_loadedSize;
    QPixmap m_painted;
    QSize m_paintedSize;
    qreal m_paintedRatio = 0;
};

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
    /// Begins to read the picture for a window of this size, in logical pixels, on a device with
    /// this pixel ratio. Where there is no picture nothing is begun.
    void startLoading(QSize windowSize, qreal ratio);

    /// Waits for the picture and returns it no larger than the window shows it: without scaling
    /// 3.5 MB of pixels in place of 8. Null where there is none or it cannot be read.
    QPixmap takePicture();

    /// Whether this is what was given last.
    bool isLoadedFor(QSize windowSize, qreal ratio) const;

    /// The pixel ratio of what is painted on: the window may be painted into a picture with another
    /// one than its screen's.
    static qreal ratioOf(const QPainter &painter);

    /// Paints onto a window of the size that was given last, with `picture` being the one that
    /// takePicture() gave for it.
    void paint(QPainter &painter, const QPixmap &picture);

private:
    void prepare(const QPixmap &picture);

    QFuture<QImage> m_loading; // valid from startLoading() to takePicture()
    QSize m_windowSize;
    qreal m_ratio = 0;
    QPixmap m_painted; // null until it is painted, and where it cannot be kept
};

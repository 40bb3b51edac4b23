#include "ui/NewsView.h"

#include "ui/NewsHtml.h"

#include <QAbstractTextDocumentLayout>
#include <QCoreApplication>
#include <QFutureWatcher>
#include <QScopeGuard>
#include <QtConcurrentRun>
#include <QTextDocument>
#include <QThreadPool>

#include <atomic>
#include <new>
#include <semaphore>
#include <utility>

/// What the GUI thread and the reading one share.
struct NewsView::Reading
{
    std::unique_ptr<QTextDocument> document;
    std::binary_semaphore isDone{0};
    std::atomic_bool isAbandoned = false;
};

NewsView::NewsView(QWidget *parent)
    : QTextEdit(parent)
{
    // The program's end waits for the pool.
    connect(qApp, &QCoreApplication::aboutToQuit, this, &NewsView::abandonReading);
}

NewsView::~NewsView()
{
    abandonReading();
}

void NewsView::showNews(const QStringList &news)
{
    abandonReading();
    m_reading = std::make_shared<Reading>();
    if (NewsHtml::isQuick(news)) {
        showDocument(NewsHtml::read(news, font(), m_reading->isAbandoned));
        return;
    }

    const auto read = [reading = m_reading, news, font = font(), thread = thread()] {
        // However it ends, the GUI thread does not wait for ever.
        const auto done = qScopeGuard([&reading] { reading->isDone.release(); });
        try {
            auto document = NewsHtml::read(news, font, reading->isAbandoned);
            document->moveToThread(thread);
            reading->document = std::move(document);
        } catch (const std::bad_alloc &) {
            // Qt's documents take some hundred bytes for a character. Nothing is shown then.
        }
    };
    const QFuture<void> task = QtConcurrent::run(QThreadPool::globalInstance(), read);
    if (m_reading->isDone.try_acquire_for(kPatience)) {
        showDocument(std::move(m_reading->document));
        return;
    }
    m_watcher = std::make_unique<QFutureWatcher<void>>();
    connect(m_watcher.get(), &QFutureWatcherBase::finished, this, [this] {
        m_reading->isDone.acquire(); // at once
        showDocument(std::move(m_reading->document));
    });
    m_watcher->setFuture(task);
}

void NewsView::abandonReading()
{
    m_watcher.reset();
    if (m_reading)
        m_reading->isAbandoned = true;
}

void NewsView::showDocument(std::unique_ptr<QTextDocument> document)
{
    if (!document)
        return;
    document->setDefaultFont(font()); // it may have changed since
    // Without a size nothing is laid out yet: setDocument() gives it the panel's, once.
    document->setPageSize(QSizeF(0, 0));
    document->documentLayout()->setPaintDevice(viewport());
    document->setDefaultTextOption(this->document()->defaultTextOption());
    document->setParent(this);
    setDocument(document.get());
    delete std::exchange(m_shown, document.release());
}

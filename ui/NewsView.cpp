#include "ui/NewsView.h"

#include "ui/NewsHtml.h"

#include <QAbstractTextDocumentLayout>
#include <QCoreApplication>
#include <QFutureWatcher>
#include <QMimeData>
#include <QScopeGuard>
#include <QtConcurrentRun>
#include <QTextCursor>
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
        // Qt's painting waits for a free thread of the pool, so this one does not count.
        QThreadPool *pool = QThreadPool::globalInstance();
        pool->releaseThread();
        const auto count = qScopeGuard([pool] { pool->reserveThread(); });
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

/// In HTML each piece of a link has its address again, and each paragraph its whole format: a few
/// kilobytes of news make megabytes of it.
QMimeData *NewsView::createMimeDataFromSelection() const
{
    QString text = textCursor().selectedText();
    for (const QChar end : {QChar(QChar::ParagraphSeparator), QChar(QChar::LineSeparator),
                            QChar(0xfdd0), QChar(0xfdd1)}) // the last two bound tables
        text.replace(end, u'\n');
    text.replace(QChar::Nbsp, u' ');
    auto *mimeData = new QMimeData;
    mimeData->setText(text);
    return mimeData;
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

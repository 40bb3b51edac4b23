#include "ui/NewsView.h"

#include "ui/NewsHtml.h"

#include <QAbstractTextDocumentLayout>
#include <QFutureWatcher>
#include <QSemaphore>
#include <QtConcurrentRun>
#include <QTextDocument>
#include <QThreadPool>

#include <chrono>
#include <utility>

using namespace std::chrono_literals;

namespace {

// Nobody notices it; 1,500 items take a third of it.
constexpr std::chrono::milliseconds kPatience = 100ms;

} // namespace

NewsView::NewsView(QWidget *parent)
    : QTextEdit(parent)
{
}

NewsView::~NewsView() = default;

void NewsView::showNews(const QStringList &news)
{
    m_reading.reset(); // whatever it was, it is not awaited any more
    const auto isRead = std::make_shared<QSemaphore>();
    const auto read = [news, font = font(), thread = thread(), isRead] {
        Document document = NewsHtml::read(news, font);
        document->moveToThread(thread);
        isRead->release();
        return document;
    };
    QFuture<Document> reading = QtConcurrent::run(QThreadPool::globalInstance(), read);
    if (isRead->tryAcquire(1, static_cast<int>(kPatience.count()))) {
        showDocument(reading.takeResult());
        return;
    }
    m_reading = std::make_unique<QFutureWatcher<Document>>();
    connect(m_reading.get(), &QFutureWatcherBase::finished, this,
            [this] { showDocument(m_reading->future().takeResult()); });
    m_reading->setFuture(reading);
}

void NewsView::showDocument(Document document)
{
    // Without a size nothing is laid out yet: setDocument() gives it the panel's, once.
    document->setPageSize(QSizeF(0, 0));
    document->documentLayout()->setPaintDevice(viewport());
    document->setDefaultTextOption(this->document()->defaultTextOption());
    document->setParent(this);
    setDocument(document.get());
    delete std::exchange(m_shown, document.release());
}

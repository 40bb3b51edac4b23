#include "ui/NewsView.h"

#include "ui/NewsHtml.h"

#include <QAbstractTextDocumentLayout>
#include <QFutureWatcher>
#include <QtConcurrentRun>
#include <QTextDocument>
#include <QThreadPool>

#include <chrono>
#include <semaphore>
#include <utility>

using namespace std::chrono_literals;

namespace {

// Nobody notices it; 1,500 items take a third of it.
constexpr std::chrono::milliseconds kPatience = 100ms;

/// What the reading thread hands over.
struct Reading
{
    std::unique_ptr<QTextDocument> document;
    std::binary_semaphore isDone{0};
};

} // namespace

NewsView::NewsView(QWidget *parent)
    : QTextEdit(parent)
{
}

NewsView::~NewsView() = default;

void NewsView::showNews(const QStringList &news)
{
    m_reading.reset(); // whatever it was, it is not awaited any more
    const auto reading = std::make_shared<Reading>();
    const auto read = [reading, news, font = font(), thread = thread()] {
        reading->document = NewsHtml::read(news, font);
        reading->document->moveToThread(thread);
        reading->isDone.release();
    };
    const QFuture<void> task = QtConcurrent::run(QThreadPool::globalInstance(), read);
    if (reading->isDone.try_acquire_for(kPatience)) {
        showDocument(std::move(reading->document));
        return;
    }
    m_reading = std::make_unique<QFutureWatcher<void>>();
    connect(m_reading.get(), &QFutureWatcherBase::finished, this, [this, reading] {
        reading->isDone.acquire(); // at once
        showDocument(std::move(reading->document));
    });
    m_reading->setFuture(task);
}

void NewsView::showDocument(std::unique_ptr<QTextDocument> document)
{
    // Without a size nothing is laid out yet: setDocument() gives it the panel's, once.
    document->setPageSize(QSizeF(0, 0));
    document->documentLayout()->setPaintDevice(viewport());
    document->setDefaultTextOption(this->document()->defaultTextOption());
    document->setParent(this);
    setDocument(document.get());
    delete std::exchange(m_shown, document.release());
}

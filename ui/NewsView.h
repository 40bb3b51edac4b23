#pragma once

#include <QStringList>
#include <QTextEdit>

#include <chrono>
#include <memory>

class QMimeData;
class QTextDocument;
template <typename T> class QFutureWatcher;

/// Shows the news. Long ones are read on a pool thread, for a hostile feed can keep Qt's parser
/// busy for seconds; all else happens on the GUI thread.
class NewsView : public QTextEdit
{
public:
    /// How long showNews() waits at most for long ones. Nobody notices it; 1,500 items take two
    /// thirds of it. Laying out what was waited for comes on top.
    static constexpr std::chrono::milliseconds kPatience{50};

    explicit NewsView(QWidget *parent = nullptr);
    ~NewsView() override;

    /// Replaces what is shown. Short news are there when this returns; others follow when they are
    /// read, unless newer ones have been given by then. Where there is no memory to read them in,
    /// what was shown stays.
    void showNews(const QStringList &news);

protected:
    /// The text alone.
    QMimeData *createMimeDataFromSelection() const override;

private:
    struct Reading;

    void showDocument(std::unique_ptr<QTextDocument> document);
    void abandonReading();

    std::shared_ptr<Reading> m_reading;
    std::unique_ptr<QFutureWatcher<void>> m_watcher;
    QTextDocument *m_shown = nullptr;
};

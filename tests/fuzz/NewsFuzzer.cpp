#include "tests/fuzz/HtmlGrammar.h"
#include "tests/window/NewsHold.h"
#include "ui/NewsLinks.h"
#include "ui/NewsView.h"
#include "ui/StyleSheets.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>
#include <QVariant>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Worth a remark: milliseconds until everything is laid out.
constexpr qint64 kLongWait = 10'000;
constexpr qsizetype kShown = 10;
constexpr QSize kPanel(920, 260); // somewhat larger than in the window

struct Find
{
    quint32 seed;
    NewsHold hold;
    qint64 wait; // milliseconds until all is shown and has been looked at
    qsizetype characters;
};

qsizetype length(const QStringList &news)
{
    qsizetype length = 0;
    for (const QString &item : news)
        length += item.size();
    return length;
}

Find show(NewsView *view, quint32 seed, const QStringList &news)
{
    QElapsedTimer wait;
    wait.start();
    const NewsHold hold = NewsHold::measure(view, news);
    return {seed, hold, wait.elapsed(), length(news)};
}

int option(QCommandLineParser &parser, const QString &name)
{
    bool ok = false;
    const int value = parser.value(name).toInt(&ok);
    if (!ok || value < 0)
        parser.showHelp(EXIT_FAILURE);
    return value;
}

void print(const Find &find)
{
    QTextStream(stdout) << u"seed %1: %2, %3 ms in all, %4 characters\n"_s.arg(find.seed)
                               .arg(QString::fromLatin1(find.hold.description()))
                               .arg(find.wait)
                               .arg(find.characters);
}

} // namespace

/// Shows made-up news in the panel and names those that hold the window for longest, each by the
/// seed that makes it again. Fails when one holds it for too long.
int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({u"documents"_s, u"How many to try."_s, u"count"_s, u"1000"_s});
    parser.addOption(
        {u"seed"_s, u"The first document's seed; the others follow."_s, u"seed"_s, u"1"_s});
    parser.addOption({u"save"_s,
                      u"Writes the first document to a file, as the server would, and ends."_s,
                      u"file"_s});
    parser.addOption({u"file"_s, u"Shows such a file in place of documents."_s, u"file"_s});
    parser.process(application);
    const int documents = option(parser, u"documents"_s);
    const int firstSeed = option(parser, u"seed"_s);

    if (parser.isSet(u"save"_s)) {
        QFile file(parser.value(u"save"_s));
        const QStringList news = HtmlGrammar(static_cast<quint32>(firstSeed)).feed();
        const QJsonDocument feed(QJsonArray::fromStringList(news));
        return file.open(QIODevice::WriteOnly) && file.write(feed.toJson()) >= 0 ? EXIT_SUCCESS
                                                                                 : EXIT_FAILURE;
    }

    // Qt remarks on every colour and length that it does not know.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type == QtFatalMsg)
            QTextStream(stderr) << message << Qt::endl;
    });
    QApplication::setStyle(u"Fusion"_s);
    NewsView view;
    view.setObjectName(u"newsWidget"_s);
    view.setStyleSheet(StyleSheets::mainWindow());
    view.setReadOnly(true);
    new NewsLinks(&view);
    view.resize(kPanel);
    view.show();
    NewsHold::measure(&view, {u"<b>Une</b> <i>nouvelle</i>"_s}); // loads the fonts

    if (parser.isSet(u"file"_s)) {
        QFile file(parser.value(u"file"_s));
        if (!file.open(QIODevice::ReadOnly))
            return EXIT_FAILURE;
        const QJsonArray feed = QJsonDocument::fromJson(file.readAll()).array();
        const Find find = show(&view, 0, QVariant(feed.toVariantList()).toStringList());
        print(find);
        return find.hold.isTooLong() ? EXIT_FAILURE : EXIT_SUCCESS;
    }

    QList<Find> slowest;
    bool hasFailed = false;
    for (int i = 0; i < documents; ++i) {
        const auto seed = static_cast<quint32>(firstSeed + i);
        const Find find = show(&view, seed, HtmlGrammar(seed).feed());
        const auto place = std::find_if(slowest.begin(), slowest.end(), [&find](const Find &other) {
            return other.hold.time < find.hold.time;
        });
        slowest.insert(place, find);
        slowest.resize(std::min(slowest.size(), kShown));
        const bool isTooLong = find.hold.isTooLong();
        if (isTooLong || find.wait > kLongWait)
            print(find);
        hasFailed = hasFailed || isTooLong;
    }

    QTextStream(stdout) << u"%1 documents; the slowest:\n"_s.arg(documents);
    std::for_each(slowest.begin(), slowest.end(), print);
    return hasFailed ? EXIT_FAILURE : EXIT_SUCCESS;
}

#include "app/Identity.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QProgressBar>
#include <QTest>
#include <QTextDocument>
#include <QToolTip>

#include <algorithm>
#include <cmath>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kLongError = u"Erreur de téléchargement: le serveur a répondu <b>autre chose</b> que "
                        "l'archive, et il l'a dit avec beaucoup plus de mots que la fenêtre "
                        "n'a de place dans cette ligne."_s;

/// Brightness where the green of chunk, borders and background is.
int green(const QImage &image, int x, int y)
{
    return qGreen(image.pixel(x, y));
}

/// The first and the last column of a row that differ, or {-1, -1}.
std::pair<int, int> differingColumns(const QImage &one, const QImage &other, int y)
{
    std::pair<int, int> found{-1, -1};
    for (int x = 0; x < one.width(); ++x) {
        if (std::abs(green(one, x, y) - green(other, x, y)) > 40) {
            if (found.first < 0)
                found.first = x;
            found.second = x;
        }
    }
    return found;
}

int firstDifferingColumn(const QImage &one, const QImage &other)
{
    int first = one.width();
    for (int y = 0; y < one.height(); ++y) {
        const int column = differingColumns(one, other, y).first;
        first = column < 0 ? first : std::min(first, column);
    }
    return first;
}

} // namespace

/// Small things that a player sees, on the grabbed pixels.
class TestWindowDetails : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Identity::apply(); }
    void init();
    void cleanup();
    void anEmptyPlayerCountPaintsNothing();
    void theBarHasRoundCorners_data();
    void theBarHasRoundCorners();
    void anEmptyBarIsEmpty();
    void theBarsTrackIsSeen();
    void aLongTextEndsInDots_data();
    void aLongTextEndsInDots();
    void aTextThatFitsIsPaintedAsItIs();
    void theToolTipTellsTheWholeText_data();
    void theToolTipTellsTheWholeText();
    void aToolTipTooHighForAnyScreenEndsInDots_data();
    void aToolTipTooHighForAnyScreenEndsInDots();
    void theHeadingLinesUp();

private:
    QImage grabbed(const QWidget *widget) const;
    QImage grabbed(const QRect &rect) const;
    QString toolTipOf(QLabel *label) const;
    QLabel *step() const { return m_launcher->label(u"progressLabel"_s); }

    std::optional<LauncherFixture> m_launcher;
};

void TestWindowDetails::init()
{
    m_launcher.emplace();
    m_launcher->open();
    QVERIFY(QTest::qWaitForWindowExposed(m_launcher->window()));
}

void TestWindowDetails::cleanup()
{
    QToolTip::hideText();
    m_launcher.reset();
}

QImage TestWindowDetails::grabbed(const QRect &rect) const
{
    return m_launcher->window()->grab(rect).toImage().convertToFormat(QImage::Format_RGB32);
}

QImage TestWindowDetails::grabbed(const QWidget *widget) const
{
    return grabbed(QRect(widget->mapTo(m_launcher->window(), QPoint()), widget->size()));
}

void TestWindowDetails::anEmptyPlayerCountPaintsNothing()
{
    auto *players = m_launcher->label(u"playersLabel"_s);
    QVERIFY(players->isVisible() && players->text().isEmpty());
    players->setText(u"2 joueurs connectés"_s);
    QApplication::processEvents();
    const QRect rect(players->mapTo(m_launcher->window(), QPoint()), players->size());
    QVERIFY(rect.width() > 100);
    const QImage full = grabbed(rect);

    players->setText(QString());
    QApplication::processEvents();
    QVERIFY(players->isVisible());
    const QImage empty = grabbed(rect);
    m_launcher->child<QWidget>(u"centralWidget"_s)->hide();
    const QImage picture = grabbed(rect);
    QCOMPARE(empty, picture);
    QVERIFY(full != picture);
}

void TestWindowDetails::theBarHasRoundCorners_data()
{
    QTest::addColumn<int>("percent");
    for (const int percent : {1, 2, 3, 4, 10, 50, 100})
        QTest::addRow("at %d %%", percent) << percent;
}

void TestWindowDetails::theBarHasRoundCorners()
{
    QFETCH(const int, percent);
    QProgressBar *bar = m_launcher->progressBar();
    const QImage empty = grabbed(bar);
    bar->setValue(percent);
    const QImage filled = grabbed(bar);
    const int bottom = bar->height() - 1;
    const auto [left, right] = differingColumns(empty, filled, bottom / 2);
    QCOMPARE(left, 0);
    const int exact = bar->width() * percent / 100 - 1;
    QVERIFY2(std::abs(right - std::max(exact, bar->height() - 1)) <= 1,
             qPrintable(u"filled up to %1"_s.arg(right)));
    for (const int row : {0, bottom}) {
        const auto [from, to] = differingColumns(empty, filled, row);
        QVERIFY2(from - left >= 5 && right - to >= 5,
                 qPrintable(u"row %1 is filled from %2 to %3"_s.arg(row).arg(from).arg(to)));
    }
}

void TestWindowDetails::anEmptyBarIsEmpty()
{
    QProgressBar *bar = m_launcher->progressBar();
    const QImage image = grabbed(bar);
    for (int x = 0; x < image.width(); ++x)
        QVERIFY(green(image, x, image.height() / 2) < 100);
}

void TestWindowDetails::theBarsTrackIsSeen()
{
    const QProgressBar *bar = m_launcher->progressBar();
    const QRect rect(bar->mapTo(m_launcher->window(), QPoint()), bar->size());
    const QImage image = grabbed(m_launcher->window()->rect());
    constexpr int kPart = 92; // a tenth of the bar
    for (int left = rect.left(); left + kPart <= rect.right() + 1; left += kPart) {
        double track = 0;
        double ground = 0;
        for (int x = left; x < left + kPart; ++x) {
            for (const int y : {rect.top() + 1, rect.bottom() - 1})
                track += green(image, x, y) / 2.0 / kPart;
            for (const int y : {rect.top() - 2, rect.bottom() + 2})
                ground += green(image, x, y) / 2.0 / kPart;
        }
        QVERIFY2(ground - track >= 12,
                 qPrintable(u"%1 on %2 at %3"_s.arg(track).arg(ground).arg(left)));
    }
}

void TestWindowDetails::aLongTextEndsInDots_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("style");
    const auto elided = [](const QLabel &like, const QString &text) {
        return like.fontMetrics().elidedText(text, Qt::ElideRight, 920);
    };
    m_launcher.emplace();
    m_launcher->open();
    const QString shown = elided(*step(), kLongError);
    QVERIFY(shown.endsWith(u'…'));
    QTest::newRow("one long line") << kLongError << shown << QString();
    QTest::newRow("one long line in red") << kLongError << shown << u"color: #f44336;"_s;
    QTest::newRow("two short lines")
        << u"Erreur d'extraction\nunzip: fin"_s << u"Erreur d'extraction…"_s << QString();
    m_launcher.reset();
}

void TestWindowDetails::aLongTextEndsInDots()
{
    QFETCH(const QString, text);
    QFETCH(const QString, shown);
    QFETCH(const QString, style);
    step()->setStyleSheet(style);
    step()->setText(text);
    QCOMPARE(step()->text(), text);
    const QImage image = grabbed(step());

    // The same as if those were the words.
    step()->setText(shown);
    QCOMPARE(image, grabbed(step()));
}

void TestWindowDetails::aTextThatFitsIsPaintedAsItIs()
{
    const auto text = u"Téléchargement du client: %.1f / %.1f MB"_s;
    step()->setText(text);
    const QImage image = grabbed(step());
    QLabel plain(text, m_launcher->child<QWidget>(u"centralWidget"_s));
    plain.setObjectName(u"progressLabel"_s);
    plain.setAlignment(step()->alignment());
    plain.setGeometry(step()->geometry());
    step()->setText(QString());
    plain.show();
    QCOMPARE(image, grabbed(&plain));
    QCOMPARE(toolTipOf(step()), QString());
}

QString TestWindowDetails::toolTipOf(QLabel *label) const
{
    const QPoint place(10, 5);
    QHelpEvent event(QEvent::ToolTip, place, label->mapToGlobal(place));
    QApplication::sendEvent(label, &event);
    return label->toolTip();
}

void TestWindowDetails::theToolTipTellsTheWholeText_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("one long line with signs of HTML") << kLongError;
    QTest::newRow("a word of 2,000 letters") << QString(2000, u'x');
    QTest::newRow("20,000 characters") << u"Erreur "_s.repeated(2857) + u'.';
    QTest::newRow("200 lines") << u"Erreur\n"_s.repeated(199) + u"fin"_s;
    QTest::newRow("several lines") << u"Erreur\n  unzip: <img src='//host/share'>\nfin"_s;
}

void TestWindowDetails::theToolTipTellsTheWholeText()
{
    QFETCH(const QString, text);
    step()->setText(text);
    step()->setStyleSheet(u"color: #f44336;"_s);
    const QString shown = toolTipOf(step());
    QCOMPARE(QToolTip::text(), shown);
    QVERIFY(Qt::mightBeRichText(shown)); // else it is one line, wider than the screen
    QTextDocument document;
    document.setHtml(shown);
    QCOMPARE(document.toPlainText().remove(QChar(0x200b)).split(u'\n'), text.split(u'\n'));
    QVERIFY(shown.contains(u"#121212"_s));
    document.setTextWidth(600);
    QVERIFY(document.idealWidth() <= 600); // an endless word is broken too

    step()->setText(u"Prêt à jouer !"_s);
    QCOMPARE(toolTipOf(step()), QString());
}

void TestWindowDetails::aToolTipTooHighForAnyScreenEndsInDots_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("told");
    QTest::newRow("characters") << u"Erreur "_s.repeated(10'000) << 20'000;
    QTest::newRow("lines") << u"Erreur\n"_s.repeated(1000) << 250 * 7 - 1;
}

void TestWindowDetails::aToolTipTooHighForAnyScreenEndsInDots()
{
    QFETCH(const QString, text);
    QFETCH(const int, told);
    step()->setText(text);
    QTextDocument document;
    document.setHtml(toolTipOf(step()));
    QCOMPARE(document.toPlainText().remove(QChar(0x200b)), text.left(told) + u'…');
}

void TestWindowDetails::theHeadingLinesUp()
{
    const auto firstColumnOf = [this](QLabel *label) {
        label->setText(u"HHH"_s);
        const QImage with = grabbed(label);
        label->setText(QString());
        const QImage without = grabbed(label);
        return label->x() + firstDifferingColumn(with, without);
    };
    const int heading = firstColumnOf(m_launcher->label(u"sectionTitle"_s));
    QVERIFY2(std::abs(heading - firstColumnOf(step())) <= 1,
             qPrintable(u"begins at %1"_s.arg(heading)));
}

VEYRA_WIDGET_TEST_MAIN(TestWindowDetails)
#include "TestWindowDetails.moc"

#include "app/Identity.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>

#include <cmath>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr double kLeastContrast = 4.5;
/// The painting of the picture may differ by this much between processors.
constexpr int kTolerance = 2;
constexpr int kVersionWidth = 60; // pixels from the middle that the version may take

double luminance(const QColor &color)
{
    const auto linear = [](double channel) {
        return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

double contrast(const QColor &one, const QColor &other)
{
    const auto [low, high] = std::minmax({luminance(one), luminance(other)});
    return (high + 0.05) / (low + 0.05);
}

/// Parts of the window where no text stands, so that fonts play no part.
struct Region
{
    const char *name;
    QRect rect;
};

} // namespace

/// The look of the real window, on the grabbed pixels.
class TestWindowFace : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_launcher.reset(); }
    void textIsLegibleOnThePicture_data();
    void textIsLegibleOnThePicture();
    void thePaintingIsAsStored_data();
    void thePaintingIsAsStored();
    void theGlowOfThePlayButtonIsSeen();

private:
    QImage grabbed() const;
    QRect rectOf(const QString &name) const;
    QList<Region> regions() const;

    std::optional<LauncherFixture> m_launcher;
};

void TestWindowFace::initTestCase()
{
    Identity::apply();
    QApplication::setFont(QFont(u"DejaVu Sans"_s)); // fixes where the rows lie
    if (!qEnvironmentVariableIsSet("VEYRA_WRITE_REFERENCE"))
        return;

    // Writes the picture that thePaintingIsAsStored() compares with: only the compared regions.
    init();
    const QImage window = grabbed();
    QImage reference(window.size(), QImage::Format_RGB32);
    reference.fill(Qt::black);
    QPainter painter(&reference);
    for (const Region &region : regions())
        painter.drawImage(region.rect.topLeft(), window, region.rect);
    painter.end();
    QDir().mkpath(QStringLiteral(VEYRA_REFERENCE_FOLDER));
    QVERIFY(reference.save(QStringLiteral(VEYRA_REFERENCE_FOLDER "/window.png")));
}

void TestWindowFace::init()
{
    m_launcher.emplace();
    m_launcher->build();
    m_launcher->progressBar()->setValue(60);
    m_launcher->playButton()->setEnabled(true);
    m_launcher->news()->clearFocus();
    m_launcher->window()->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_launcher->window()));
}

QImage TestWindowFace::grabbed() const
{
    return m_launcher->window()->grab().toImage().convertToFormat(QImage::Format_RGB32);
}

QRect TestWindowFace::rectOf(const QString &name) const
{
    const auto *widget = m_launcher->child<QWidget>(name);
    return QRect(widget->mapTo(m_launcher->window(), QPoint(0, 0)), widget->size());
}

void TestWindowFace::textIsLegibleOnThePicture_data()
{
    QTest::addColumn<QString>("widget");
    QTest::addColumn<QColor>("color");
    QTest::newRow("the version, the smallest text") << u"versionLabel"_s << QColor(0x9e9e9e);
    QTest::newRow("the state of an online server") << u"statusLabel"_s << QColor(0x8bc34a);
    QTest::newRow("the state of an offline server") << u"statusLabel"_s << QColor(0xf44336);
    QTest::newRow("the player count") << u"playersLabel"_s << QColor(0xffffff);
    QTest::newRow("the heading") << u"sectionTitle"_s << QColor(0xffffff);
    QTest::newRow("the news") << u"newsWidget"_s << QColor(0xffffff);
    QTest::newRow("a title in the news") << u"newsWidget"_s << QColor(0x10b981);
    QTest::newRow("progress in white") << u"progressLabel"_s << QColor(0xffffff);
    QTest::newRow("progress in green") << u"progressLabel"_s << QColor(0x8bc34a);
    QTest::newRow("an error in red") << u"progressLabel"_s << QColor(0xf44336);
    QTest::newRow("a link button") << u"socialButton"_s << QColor(0xffffff);
    QTest::newRow("the settings button") << u"settingsButton"_s << QColor(0xffffff);
}

void TestWindowFace::textIsLegibleOnThePicture()
{
    QFETCH(const QString, widget);
    QFETCH(const QColor, color);
    QRect rect = rectOf(widget);
    auto *shown = m_launcher->child<QWidget>(widget);
    // What lies behind the text: the widget's own ground, without the text and the border.
    const QSize size = shown->size();
    if (auto *label = qobject_cast<QLabel *>(shown)) {
        label->setFixedSize(size);
        label->setText(QString());
    } else if (auto *button = qobject_cast<QPushButton *>(shown)) {
        button->setFixedSize(size);
        button->setText(QString());
    } else if (auto *text = qobject_cast<QTextEdit *>(shown)) {
        text->setPlaceholderText(QString());
    }
    QApplication::processEvents();
    if (widget == u"versionLabel") {
        // As wide as the window; the text stands in its middle.
        rect.adjust(rect.width() / 2 - kVersionWidth, 0, kVersionWidth - rect.width() / 2, 0);
    }
    rect.adjust(4, 4, -4, -4);

    const QImage image = grabbed();
    double worst = 21;
    for (int y = rect.top(); y <= rect.bottom(); ++y) {
        for (int x = rect.left(); x <= rect.right(); ++x)
            worst = std::min(worst, contrast(color, image.pixelColor(x, y)));
    }
    QVERIFY2(worst >= kLeastContrast, qPrintable(u"contrast %1:1"_s.arg(worst)));
}

QList<Region> TestWindowFace::regions() const
{
    const QRect bar = rectOf(u"progressBar"_s);
    const QRect play = rectOf(u"playButton"_s);
    const QRect settings = rectOf(u"settingsButton"_s);
    return {
        {"the picture's left edge", QRect(0, 0, 36, 700)},
        {"the picture's right edge", QRect(964, 0, 36, 700)},
        {"the picture between logo and links", QRect(300, 0, 400, 110)},
        {"the picture below the buttons", QRect(40, 680, 920, 20)},
        {"the progress chunk's start", QRect(bar.topLeft(), QSize(200, bar.height()))},
        {"the progress chunk's end", QRect(bar.left() + 500, bar.top(), 100, bar.height())},
        {"the progress bar's empty end", QRect(bar.right() - 99, bar.top(), 100, bar.height())},
        {"the play button's left end with its glow",
         QRect(play.left() - 30, play.top() - 4, 100, play.height() + 8)},
        {"the play button's right end with its glow",
         QRect(play.right() - 69, play.top() - 4, 100, play.height() + 8)},
        {"the settings button's left border", QRect(settings.topLeft(), QSize(20, 50))},
    };
}

void TestWindowFace::thePaintingIsAsStored_data()
{
    QTest::addColumn<QRect>("rect");
    init();
    for (const Region &region : regions())
        QTest::newRow(region.name) << region.rect;
}

void TestWindowFace::thePaintingIsAsStored()
{
    QFETCH(const QRect, rect);
    const QImage reference(QStringLiteral(VEYRA_REFERENCE_FOLDER "/window.png"));
    QVERIFY(!reference.isNull());
    const QImage window = grabbed();
    QCOMPARE(window.size(), reference.size());
    for (int y = rect.top(); y <= rect.bottom(); ++y) {
        for (int x = rect.left(); x <= rect.right(); ++x) {
            const QRgb is = window.pixel(x, y);
            const QRgb wanted = reference.pixel(x, y);
            const int difference =
                std::max({std::abs(qRed(is) - qRed(wanted)), std::abs(qGreen(is) - qGreen(wanted)),
                          std::abs(qBlue(is) - qBlue(wanted))});
            QVERIFY2(difference <= kTolerance,
                     qPrintable(u"%1,%2 is %3, stored %4"_s.arg(x).arg(y).arg(
                         QColor(is).name(), QColor(wanted).name())));
        }
    }
}

void TestWindowFace::theGlowOfThePlayButtonIsSeen()
{
    auto *play = m_launcher->playButton();
    const QRect rect = rectOf(u"playButton"_s);
    const QPoint beside(rect.left() - 3, rect.center().y());
    const QColor glowing = grabbed().pixelColor(beside);
    play->setGraphicsEffect(nullptr);
    QApplication::processEvents();
    const QColor plain = grabbed().pixelColor(beside);
    QVERIFY2(contrast(glowing, plain) > 1.5,
             qPrintable(u"%1 against %2"_s.arg(glowing.name(), plain.name())));
}

VEYRA_WIDGET_TEST_MAIN(TestWindowFace)
#include "TestWindowFace.moc"

#include "app/Identity.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "ui/WindowPlacement.h"

#include <QApplication>
#include <QCursor>
#include <QGraphicsEffect>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QWindow>

#include <cmath>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

// The platform plugin gives each window a frame of 2 pixels.
constexpr int kFrame = 2;

/// Sizes and places as a program sees them: one that shows 1280 × 720 pixels at 125 % has 1024 ×
/// 576.
const QByteArray kScreens = R"({"screens": [
    {"name": "large", "x": 0, "y": 0, "width": 1920, "height": 1080, "dpr": 1},
    {"name": "fine", "x": 2000, "y": 0, "width": 1920, "height": 1080, "dpr": 2},
    {"name": "small", "x": 4000, "y": 100, "width": 1024, "height": 576, "dpr": 1.25},
    {"name": "tiny", "x": 6000, "y": 0, "width": 800, "height": 600, "dpr": 1}
]})";

QScreen *screenNamed(const QString &name)
{
    for (QScreen *screen : QApplication::screens()) {
        if (screen->name() == name)
            return screen;
    }
    qFatal("There is no screen \"%s\"", qPrintable(name));
}

} // namespace

/// The window on screens of several sizes and densities, and on its way from one to another.
class TestScreens : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Identity::apply(); }
    void init();
    void cleanup() { m_launcher.reset(); }
    void aWindowBeginsWithinTheScreen_data();
    void aWindowBeginsWithinTheScreen();
    void theLauncherBeginsWithinTheScreen_data();
    void theLauncherBeginsWithinTheScreen();
    void theLogoHasThePixelsOfTheScreen();
    void theGlowIsAsWideOnEveryScreen();

private:
    MainWindow *window() const { return m_launcher->window(); }
    void goTo(const QString &screen);
    /// How much brighter than far off the window is this far left of the play button.
    int glowAt(int distance) const;

    std::optional<LauncherFixture> m_launcher;
};

void TestScreens::init()
{
    m_launcher.emplace();
    m_launcher->build();
}

void TestScreens::goTo(const QString &name)
{
    window()->show();
    window()->move(screenNamed(name)->geometry().topLeft() + QPoint(5, 5));
    QTRY_COMPARE(window()->screen()->name(), name);
    window()->grab();
    QApplication::processEvents();
}

void TestScreens::aWindowBeginsWithinTheScreen_data()
{
    QTest::addColumn<QRect>("available");
    QTest::addColumn<QPoint>("corner");
    QTest::newRow("in the middle where there is room")
        << QRect(0, 0, 1920, 1040) << QPoint(452, 154);
    QTest::newRow("below a bar at the top") << QRect(0, 40, 1100, 740) << QPoint(42, 44);
    QTest::newRow("its top first where it is too high") << QRect(0, 0, 1024, 536) << QPoint(4, 0);
    QTest::newRow("its left edge first where it is too wide")
        << QRect(1920, 0, 800, 1000) << QPoint(1920, 134);
    QTest::newRow("its corner where nothing fits") << QRect(64, 32, 640, 480) << QPoint(64, 32);
}

void TestScreens::aWindowBeginsWithinTheScreen()
{
    QFETCH(const QRect, available);
    QTEST(WindowPlacement::cornerFor(QSize(1016, 732), available), "corner");
}

void TestScreens::theLauncherBeginsWithinTheScreen_data()
{
    QTest::addColumn<QString>("screen");
    QTest::addColumn<QPoint>("corner");
    QTest::newRow("1280 × 720 pixels at 125 %") << u"small"_s << QPoint(4000 + 10, 100);
    QTest::newRow("800 × 600 pixels") << u"tiny"_s << QPoint(6000, 0);
}

void TestScreens::theLauncherBeginsWithinTheScreen()
{
    QFETCH(const QString, screen);
    QFETCH(const QPoint, corner);
    QCursor::setPos(screenNamed(screen)->geometry().center());
    QCOMPARE(window()->screen()->name(), u"large"_s); // as long as it was never shown
    WindowPlacement::keepInReach(window());
    window()->show();
    QVERIFY(QTest::qWaitForWindowExposed(window()));
    QCOMPARE(window()->windowHandle()->frameMargins(), QMargins(kFrame, kFrame, kFrame, kFrame));
    QCOMPARE(window()->frameGeometry().topLeft(), corner);
    QCOMPARE(window()->size(), QSize(1000, 700));
}

void TestScreens::theLogoHasThePixelsOfTheScreen()
{
    const auto *label = m_launcher->label(u"logoLabel"_s);
    const auto expected = [](const QSize &bounds) {
        return QPixmap(u":/images/logo.png"_s)
            .scaled(bounds, Qt::KeepAspectRatio, Qt::SmoothTransformation)
            .toImage();
    };
    for (const auto &[screen, bounds, ratio] :
         {std::tuple{u"large"_s, QSize(300, 150), 1.0}, std::tuple{u"fine"_s, QSize(600, 300), 2.0},
          std::tuple{u"large"_s, QSize(300, 150), 1.0}}) {
        goTo(screen);
        QTRY_COMPARE(label->pixmap().devicePixelRatio(), ratio);
        QImage shown = label->pixmap().toImage();
        shown.setDevicePixelRatio(1);
        QCOMPARE(shown, expected(bounds));
        QCOMPARE(label->width(), 164);
    }
}

int TestScreens::glowAt(int distance) const
{
    const QPushButton *play = m_launcher->playButton();
    const QPoint edge = play->mapTo(window(), QPoint(0, play->height() / 2));
    const auto brightness = [this](QPoint place) {
        const QImage image = window()->grab(QRect(place, QSize(1, 1))).toImage();
        return qGreen(image.pixel(0, 0));
    };
    const int with = brightness(edge - QPoint(distance, 0));
    play->graphicsEffect()->setEnabled(false);
    const int without = brightness(edge - QPoint(distance, 0));
    play->graphicsEffect()->setEnabled(true);
    return with - without;
}

void TestScreens::theGlowIsAsWideOnEveryScreen()
{
    QList<int> glow[2];
    for (const auto &[screen, values] :
         {std::pair{u"large"_s, &glow[0]}, std::pair{u"fine"_s, &glow[1]}}) {
        goTo(screen);
        QApplication::processEvents();
        for (int distance = 2; distance <= 14; distance += 4)
            values->append(glowAt(distance));
    }
    QVERIFY2(glow[0].first() > 40, qPrintable(u"brighter by %1"_s.arg(glow[0].first())));
    for (qsizetype i = 0; i < glow[0].size(); ++i) {
        QVERIFY2(std::abs(glow[0].at(i) - glow[1].at(i)) <= 12,
                 qPrintable(u"%1 against %2"_s.arg(glow[0].at(i)).arg(glow[1].at(i))));
    }
}

int main(int argc, char **argv)
{
    const TestEnvironment environment;
    const QString screens = environment.folder() + u"/screens.json"_s;
    Files::write(screens, kScreens);
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + screens.toUtf8());
    QApplication application(argc, argv);
    TestScreens test;
    return QTest::qExec(&test, argc, argv);
}

#include "TestScreens.moc"

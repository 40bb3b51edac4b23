#include "app/MainWindow.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QFile>
#include <QImage>
#include <QLabel>
#include <QLinearGradient>
#include <QPainter>
#include <QResource>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

/// A launcher whose pictures cannot be read: this program is built without them, and some rows give
/// it damaged ones, a page of text and a picture that breaks off.
class TestWindowWithoutPictures : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_launcher = std::make_unique<LauncherFixture>(); }
    void cleanup();

    void showsItsNameInPlaceOfTheLogo_data() { pictures(); }
    void showsItsNameInPlaceOfTheLogo();
    void nameIsBigBoldAndGreen();
    void backdropIsAVeiledGradient_data() { pictures(); }
    void backdropIsAVeiledGradient();
    void gradientIsDarkerThanItsColours();

private:
    static void pictures();
    void open(bool damagedPictures = false);
    QImage backdrop();

    const QString m_damagedPictures = QStringLiteral(VEYRA_DAMAGED_PICTURES);
    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestWindowWithoutPictures::pictures()
{
    QTest::addColumn<bool>("damagedPictures");
    QTest::newRow("there are no pictures") << false;
    QTest::newRow("the pictures are damaged") << true;
}

void TestWindowWithoutPictures::open(bool damagedPictures)
{
    if (damagedPictures)
        QVERIFY(QResource::registerResource(m_damagedPictures));
    QCOMPARE(QFile::exists(u":/images/logo.png"_s), damagedPictures);
    QCOMPARE(QFile::exists(u":/images/background.png"_s), damagedPictures);
    m_launcher->open();
}

void TestWindowWithoutPictures::cleanup()
{
    m_launcher.reset();
    QResource::unregisterResource(m_damagedPictures);
}

QImage TestWindowWithoutPictures::backdrop()
{
    MainWindow *window = m_launcher->window();
    for (QWidget *child : window->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        if (!child->isWindow())
            child->hide();
    }
    return window->grab().toImage().convertToFormat(QImage::Format_RGB32);
}

void TestWindowWithoutPictures::showsItsNameInPlaceOfTheLogo()
{
    QFETCH(const bool, damagedPictures);
    open(damagedPictures);
    const QLabel *title = m_launcher->label(u"titleLabel"_s);
    QVERIFY(title->isVisible());
    QCOMPARE(title->text(), u"Veyra Launcher"_s);
    const QLabel *logo = m_launcher->label(u"logoLabel"_s);
    QVERIFY(logo->pixmap(Qt::ReturnByValue).isNull());
    QCOMPARE(logo->text(), QString());
}

void TestWindowWithoutPictures::nameIsBigBoldAndGreen()
{
    open();
    const QLabel *title = m_launcher->label(u"titleLabel"_s);
    QCOMPARE(title->font().pixelSize(), 36);
    QVERIFY(title->font().bold());
    QCOMPARE(title->palette().color(QPalette::WindowText), QColor(0x8b, 0xc3, 0x4a));
}

void TestWindowWithoutPictures::backdropIsAVeiledGradient()
{
    QFETCH(const bool, damagedPictures);
    open(damagedPictures);
    QPixmap target(1000, 700);
    QPainter painter(&target);
    QLinearGradient gradient(0, 0, 0, 700);
    gradient.setColorAt(0, QColor(0x12, 0x12, 0x12));
    gradient.setColorAt(1, QColor(0x68, 0x9f, 0x38));
    painter.fillRect(target.rect(), gradient);
    painter.fillRect(target.rect(), QColor(0, 0, 0, 150));
    painter.end();
    QCOMPARE(backdrop(), target.toImage().convertToFormat(QImage::Format_RGB32));
}

void TestWindowWithoutPictures::gradientIsDarkerThanItsColours()
{
    open();
    const QImage image = backdrop();
    // 105 of 255 parts of the colour remain.
    const auto isNear = [&image](int y, int red, int green, int blue) {
        const QColor color = image.pixelColor(500, y);
        return qAbs(color.red() - red) <= 1 && qAbs(color.green() - green) <= 1 &&
               qAbs(color.blue() - blue) <= 1;
    };
    QVERIFY(isNear(0, 7, 7, 7));
    QVERIFY(isNear(699, 43, 65, 23));
    for (int y = 0; y < 700; y += 100)
        QCOMPARE(image.pixel(0, y), image.pixel(999, y));
}

VEYRA_WIDGET_TEST_MAIN(TestWindowWithoutPictures)
#include "TestWindowWithoutPictures.moc"

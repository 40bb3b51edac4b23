#include "app/Identity.h"
#include "app/MainWindow.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "ui/StyleSheets.h"

#include <QFile>
#include <QGraphicsDropShadowEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QResource>
#include <QScopeGuard>
#include <QSet>
#include <QStyle>
#include <QtEndian>
#include <QTest>
#include <QTextEdit>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

int qInitResources_launcher();
int qCleanupResources_launcher();

namespace {

struct StyleRule
{
    QString selector;
    QStringList declarations;
};

const auto kStatusDeclarations = QStringList{
    u"padding: 10px 20px;"_s, u"background: rgba(0, 0, 0, 0.5);"_s, u"border-radius: 10px;"_s};

QString gradient(const QString &from, const QString &to)
{
    return u"background: qlineargradient(x1:0, y1:0, x2:1, y2:0,\n"
           "                stop:0 %1, stop:1 %2);"_s.arg(from, to);
}

/// The rules of the main window's sheet. A colour is "accent", "text" ...; fill() puts in either
/// placeholders or the colours themselves.
const QList<StyleRule> kWindowRules = {
    {u"#centralWidget"_s, {u"background: transparent;"_s}},
    {u"#titleLabel"_s, {u"font-size: 36px;"_s, u"font-weight: bold;"_s, u"color: <1>;"_s}},
    {u"#statusLabel"_s,
     QStringList{u"font-size: 16px;"_s, u"font-weight: bold;"_s, u"color: <2>;"_s} +
         kStatusDeclarations},
    {u"#playersLabel"_s,
     QStringList{u"font-size: 14px;"_s, u"color: <3>;"_s} + kStatusDeclarations},
    {u"#sectionTitle"_s,
     {u"font-size: 18px;"_s, u"font-weight: bold;"_s, u"color: <3>;"_s, u"margin-top: 10px;"_s}},
    {u"#newsWidget"_s,
     {u"background: rgba(0, 0, 0, 0.6);"_s, u"border: 1px solid <4>;"_s, u"border-radius: 10px;"_s,
      u"color: <3>;"_s, u"font-size: 13px;"_s, u"padding: 15px;"_s}},
    {u"#progressLabel"_s, {u"font-size: 14px;"_s, u"color: <3>;"_s}},
    {u"#progressBar"_s,
     {u"background: rgba(0, 0, 0, 0.5);"_s, u"border: none;"_s, u"border-radius: 12px;"_s}},
    {u"#progressBar::chunk"_s, {gradient(u"<1>"_s, u"<5>"_s), u"border-radius: 12px;"_s}},
    {u"#playButton"_s,
     {u"font-size: 22px;"_s, u"font-weight: bold;"_s, u"color: white;"_s,
      gradient(u"<1>"_s, u"<5>"_s), u"border: none;"_s, u"border-radius: 15px;"_s}},
    {u"#playButton:hover"_s, {gradient(u"<5>"_s, u"<1>"_s)}},
    {u"#playButton:disabled"_s, {u"background: #555;"_s, u"color: #999;"_s}},
    {u"#settingsButton"_s,
     {u"font-size: 14px;"_s, u"font-weight: bold;"_s, u"color: <3>;"_s,
      u"background: transparent;"_s, u"border: 2px solid <1>;"_s, u"border-radius: 10px;"_s}},
    {u"#settingsButton:hover"_s, {u"background: rgba(16, 185, 129, 0.2);"_s}},
    {u"#socialButton"_s,
     {u"font-size: 12px;"_s, u"font-weight: bold;"_s, u"color: <3>;"_s,
      u"background: rgba(0, 0, 0, 0.5);"_s, u"border: 1px solid <4>;"_s, u"border-radius: 8px;"_s,
      u"padding: 8px 15px;"_s}},
    {u"#socialButton:hover"_s,
     {u"background: rgba(16, 185, 129, 0.3);"_s, u"border-color: <1>;"_s}},
    {u"#versionLabel"_s, {u"font-size: 11px;"_s, u"color: <6>;"_s}},
};

const QList<StyleRule> kDialogRules = {
    {u"QDialog"_s, {u"background: <1>;"_s}},
    {u"QLabel"_s, {u"color: <2>;"_s, u"font-size: 14px;"_s}},
    {u"QLineEdit"_s,
     {u"background: <3>;"_s, u"color: <2>;"_s, u"border: 1px solid <4>;"_s,
      u"border-radius: 5px;"_s, u"padding: 8px;"_s, u"font-size: 13px;"_s}},
    {u"QPushButton"_s,
     {u"background: <4>;"_s, u"color: <2>;"_s, u"border: none;"_s, u"border-radius: 5px;"_s,
      u"padding: 10px 20px;"_s, u"font-size: 13px;"_s}},
    {u"QPushButton:hover"_s, {u"background: <5>;"_s}},
};

const QStringList kWindowColors = {u"#8bc34a"_s, u"#8bc34a"_s, u"#ffffff"_s,
                                   u"#1e1e1e"_s, u"#7cb342"_s, u"#9e9e9e"_s};
const QStringList kDialogColors = {u"#121212"_s, u"#ffffff"_s, u"#1e1e1e"_s, u"#8bc34a"_s,
                                   u"#7cb342"_s};
const QStringList kPlaceholders = {u"%1"_s, u"%2"_s, u"%3"_s, u"%4"_s, u"%5"_s, u"%6"_s};

/// The text of a sheet: its rules, separated by `separator`, with "<1>" and so on filled in.
QString sheetText(const QList<StyleRule> &rules, const QString &separator,
                  const QStringList &colors)
{
    QStringList texts;
    for (const StyleRule &rule : rules) {
        QString text = QString(8, u' ') + rule.selector + u" {\n"_s;
        for (const QString &declaration : rule.declarations)
            text += QString(12, u' ') + declaration + u'\n';
        texts.append(text + QString(8, u' ') + u"}\n"_s);
    }
    QString sheet = u'\n' + texts.join(separator) + QString(4, u' ');
    for (qsizetype i = 0; i < colors.size(); ++i)
        sheet.replace(u"<%1>"_s.arg(i + 1), colors.at(i));
    return sheet;
}

/// What a layout holds, in order: object names, "stretch", or a nested layout in brackets.
QString contents(const QLayout *layout)
{
    QStringList items;
    for (int i = 0; i < layout->count(); ++i) {
        QLayoutItem *item = layout->itemAt(i);
        if (item->widget())
            items.append(item->widget()->objectName());
        else if (item->layout())
            items.append(u'[' + contents(item->layout()) + u']');
        else
            items.append(u"stretch"_s);
    }
    return items.join(u' ');
}

QString className(const QObject *object)
{
    return QString::fromLatin1(object->metaObject()->className());
}

/// The window as it is painted without anything on top of it.
QImage backdropOf(QWidget *window)
{
    for (QWidget *child : window->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        if (!child->isWindow())
            child->hide();
    }
    return window->grab().toImage().convertToFormat(QImage::Format_RGB32);
}

/// The backdrop with a picture that is scaled afresh.
void paintFreshBackdrop(QPainter *painter, const QSize &size)
{
    const QPixmap picture(u":/images/background.png"_s);
    const QPixmap scaled =
        picture.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    painter->drawPixmap(QRectF(0, 0, size.width(), size.height()), scaled, QRectF());
    painter->fillRect(QRect(QPoint(0, 0), size), QColor(0, 0, 0, 150));
}

QImage freshBackdrop(const QSize &size)
{
    QPixmap target(size);
    QPainter painter(&target);
    paintFreshBackdrop(&painter, size);
    painter.end();
    return target.toImage().convertToFormat(QImage::Format_RGB32);
}

double brightness(const QImage &image, const QRect &block)
{
    qint64 sum = 0;
    for (int x = block.left(); x <= block.right(); ++x) {
        for (int y = block.top(); y <= block.bottom(); ++y)
            sum += qGreen(image.pixel(x, y));
    }
    return double(sum) / (block.width() * block.height());
}

} // namespace

class TestWindowView : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void hasTitleAndSize();
    void keepsItsSize();
    void namedWidgets_data();
    void namedWidgets();
    void buttons_data();
    void buttons();
    void linkButtonsShareTheirName();
    void progressBarShowsNoText();
    void newsPanel();
    void playButtonGlows();
    void disabledPlayButtonIsGrey();
    void enabledPlayButtonIsGreen();
    void logoReplacesTheTitle();
    void mainLayout();
    void headerRow();
    void statusRow();
    void buttonRow();
    void versionLabel();
    void playButtonIsCenteredBesideTheSettings();

    void styleSheets_data();
    void styleSheets();
    void sheetIsOnTheWindowItself();

    void backdropIsAsIfScaledEachTime();
    void backdropFollowsAnotherSize();
    void backdropOnScaledScreens_data();
    void backdropOnScaledScreens();
    void backdropShowsTheWholePicture();

    void pictures_data();
    void pictures();
    void bundleIsRegisteredByPlainFunctions();
    void theIconHasAnEmblemInSmallSizes();
    void darkPaletteLeavesOtherRolesAlone();

private:
    std::unique_ptr<LauncherFixture> m_launcher;
    QMainWindow *window() const { return m_launcher->window(); }
    QVBoxLayout *mainLayoutOf() const
    {
        return qobject_cast<QVBoxLayout *>(window()->centralWidget()->layout());
    }
    QHBoxLayout *row(int index) const
    {
        return qobject_cast<QHBoxLayout *>(mainLayoutOf()->itemAt(index)->layout());
    }
};

void TestWindowView::init()
{
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->open();
}

void TestWindowView::cleanup()
{
    m_launcher.reset();
}

void TestWindowView::hasTitleAndSize()
{
    QCOMPARE(window()->windowTitle(), u"Veyra Launcher"_s);
    QCOMPARE(window()->size(), QSize(1000, 700));
    QCOMPARE(window()->centralWidget()->objectName(), u"centralWidget"_s);
    QCOMPARE(className(window()->centralWidget()), u"QWidget"_s);
    QCOMPARE(window()->windowFlags(), QMainWindow().windowFlags());
    QCOMPARE(window()->parent(), nullptr);
}

void TestWindowView::keepsItsSize()
{
    QCOMPARE(window()->minimumSize(), QSize(1000, 700));
    QCOMPARE(window()->maximumSize(), QSize(1000, 700));
    for (const QSize &wanted : {QSize(1200, 900), QSize(300, 200), QSize(1000, 701)}) {
        window()->resize(wanted);
        QCoreApplication::processEvents();
        QCOMPARE(window()->size(), QSize(1000, 700));
        window()->setGeometry(QRect(QPoint(10, 10), wanted));
        QCoreApplication::processEvents();
        QCOMPARE(window()->size(), QSize(1000, 700));
    }
}

void TestWindowView::namedWidgets_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("shown");

    QTest::newRow("the title") << u"titleLabel"_s << u"QLabel"_s << u"Veyra Launcher"_s << false;
    QTest::newRow("the logo") << u"logoLabel"_s << u"QLabel"_s << QString() << true;
    QTest::newRow("the server status")
        << u"statusLabel"_s << u"QLabel"_s << u"Vérification du serveur..."_s << true;
    QTest::newRow("the player count is empty")
        << u"playersLabel"_s << u"QLabel"_s << QString() << true;
    QTest::newRow("the news heading")
        << u"sectionTitle"_s << u"QLabel"_s << u"Actualités"_s << true;
    QTest::newRow("the current step")
        << u"progressLabel"_s << u"QLabel"_s << u"Vérification des mises à jour..."_s << true;
    QTest::newRow("the version") << u"versionLabel"_s << u"QLabel"_s << u"Version 1.0.0"_s << true;
}

void TestWindowView::namedWidgets()
{
    QFETCH(const QString, name);
    const auto found = window()->findChildren<QWidget *>(name);
    QCOMPARE(found.size(), 1);
    QTEST(className(found.first()), "type");
    QTEST(qobject_cast<QLabel *>(found.first())->text(), "text");
    QTEST(found.first()->isVisible(), "shown");
}

void TestWindowView::buttons_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QSize>("fixedSize");
    QTest::addColumn<bool>("enabled");

    QTest::newRow("play starts disabled")
        << u"JOUER"_s << u"playButton"_s << QSize(300, 70) << false;
    QTest::newRow("settings") << u"Paramètres"_s << u"settingsButton"_s << QSize(150, 50) << true;
    QTest::newRow("website") << u"Site Web"_s << u"socialButton"_s << QSize() << true;
    QTest::newRow("community chat") << u"Discord"_s << u"socialButton"_s << QSize() << true;
}

void TestWindowView::buttons()
{
    QFETCH(const QString, text);
    QFETCH(const QSize, fixedSize);
    const QPushButton *button = m_launcher->button(text);
    QTEST(button->objectName(), "name");
    QTEST(button->isEnabled(), "enabled");
    QCOMPARE(button->cursor().shape(), Qt::PointingHandCursor);
    QCOMPARE(className(button), u"QPushButton"_s);
    QVERIFY(button->isVisible());
    if (fixedSize.isValid()) {
        QCOMPARE(button->minimumSize(), fixedSize);
        QCOMPARE(button->maximumSize(), fixedSize);
        QCOMPARE(button->size(), fixedSize);
    }
}

void TestWindowView::linkButtonsShareTheirName()
{
    const auto links = window()->findChildren<QPushButton *>(u"socialButton"_s);
    QCOMPARE(links.size(), 2);
    QCOMPARE(window()->findChildren<QPushButton *>().size(), 4);
}

void TestWindowView::progressBarShowsNoText()
{
    QProgressBar *bar = m_launcher->progressBar();
    QCOMPARE(className(bar), u"QProgressBar"_s);
    QCOMPARE(bar->minimum(), 0);
    QCOMPARE(bar->maximum(), 100);
    QCOMPARE(bar->value(), 0);
    QVERIFY(!bar->isTextVisible());
    QCOMPARE(bar->minimumHeight(), 25);
    QCOMPARE(bar->maximumHeight(), 25);
    QVERIFY(bar->isVisible());

    // Were the text drawn, another text would look different.
    for (const int value : {0, 37, 100}) {
        bar->setValue(value);
        bar->setFormat(u"%p%"_s);
        const QImage before = bar->grab().toImage();
        bar->setFormat(u"XXXXXXXX"_s);
        QCOMPARE(bar->grab().toImage(), before);
    }
}

void TestWindowView::newsPanel()
{
    const QTextEdit *news = m_launcher->news();
    QVERIFY(news->isReadOnly());
    QVERIFY(news->isVisible());
    QCOMPARE(news->minimumHeight(), 200);
    QCOMPARE(news->placeholderText(), u"Chargement des actualités..."_s);
    QVERIFY(news->document()->isEmpty());
}

void TestWindowView::playButtonGlows()
{
    const auto *glow =
        qobject_cast<QGraphicsDropShadowEffect *>(m_launcher->playButton()->graphicsEffect());
    QVERIFY(glow);
    QCOMPARE(glow->blurRadius(), 20.0);
    QCOMPARE(glow->color(), QColor(0x8b, 0xc3, 0x4a, 255));
    QCOMPARE(glow->offset(), QPointF(0, 0));
    for (const QPushButton *other : window()->findChildren<QPushButton *>())
        QCOMPARE(other->graphicsEffect() != nullptr, other == m_launcher->playButton());
}

void TestWindowView::disabledPlayButtonIsGrey()
{
    const QRect place(m_launcher->playButton()->mapTo(window(), QPoint(0, 0)), QSize(300, 70));
    const QImage image = window()->grab(place).toImage();
    for (const QPoint &point : {QPoint(20, 35), QPoint(280, 35), QPoint(150, 5), QPoint(150, 65)})
        QCOMPARE(image.pixelColor(point), QColor(0x55, 0x55, 0x55));

    bool hasTextColor = false;
    for (int x = 0; x < 300 && !hasTextColor; ++x) {
        for (int y = 0; y < 70; ++y)
            hasTextColor = hasTextColor || image.pixelColor(x, y) == QColor(0x99, 0x99, 0x99);
    }
    QVERIFY2(hasTextColor, "nothing in the button has the colour of its text");
}

void TestWindowView::enabledPlayButtonIsGreen()
{
    m_launcher->playButton()->setEnabled(true);
    const QRect place(m_launcher->playButton()->mapTo(window(), QPoint(0, 0)), QSize(300, 70));
    const QImage image = window()->grab(place).toImage();
    const QColor left = image.pixelColor(1, 35);
    const QColor right = image.pixelColor(298, 35);
    QVERIFY2(qAbs(left.red() - 0x8b) <= 2 && qAbs(left.green() - 0xc3) <= 2 &&
                 qAbs(left.blue() - 0x4a) <= 2,
             qPrintable(left.name()));
    QVERIFY2(qAbs(right.red() - 0x7c) <= 2 && qAbs(right.green() - 0xb3) <= 2 &&
                 qAbs(right.blue() - 0x42) <= 2,
             qPrintable(right.name()));
}

void TestWindowView::logoReplacesTheTitle()
{
    const QPixmap shown = m_launcher->label(u"logoLabel"_s)->pixmap();
    const QPixmap logo(u":/images/logo.png"_s);
    QCOMPARE(shown.toImage(),
             logo.scaled(300, 150, Qt::KeepAspectRatio, Qt::SmoothTransformation).toImage());
    // 435 × 397 fits by its height.
    QCOMPARE(shown.size(), QSize(164, 150));
    QVERIFY(m_launcher->label(u"titleLabel"_s)->isHidden());
}

void TestWindowView::mainLayout()
{
    const QVBoxLayout *layout = mainLayoutOf();
    QVERIFY(layout);
    QCOMPARE(layout->contentsMargins(), QMargins(40, 30, 40, 30));
    QCOMPARE(layout->spacing(), 20);
    QCOMPARE(contents(layout),
             u"[logoLabel titleLabel stretch [socialButton socialButton]] "
             "[statusLabel stretch playersLabel] sectionTitle newsWidget progressLabel "
             "progressBar stretch [settingsButton stretch playButton stretch] versionLabel"_s);
    for (int i = 0; i < layout->count(); ++i)
        QCOMPARE(layout->stretch(i), 0);
}

void TestWindowView::headerRow()
{
    const QHBoxLayout *header = row(0);
    QVERIFY(header);
    const auto *links = qobject_cast<QHBoxLayout *>(header->itemAt(3)->layout());
    QVERIFY(links);
    QCOMPARE(links->spacing(), 10);
    const auto linkText = [links](int index) {
        return qobject_cast<QPushButton *>(links->itemAt(index)->widget())->text();
    };
    QCOMPARE(linkText(0), u"Site Web"_s);
    QCOMPARE(linkText(1), u"Discord"_s);
    for (int i = 0; i < header->count(); ++i)
        QCOMPARE(header->stretch(i), 0);
}

void TestWindowView::statusRow()
{
    const QHBoxLayout *status = row(1);
    QVERIFY(status);
    // Of its own it has no spacing: it takes the one around it.
    QCOMPARE(status->spacing(), mainLayoutOf()->spacing());
    QCOMPARE(row(0)->spacing(), mainLayoutOf()->spacing());
}

void TestWindowView::buttonRow()
{
    const QHBoxLayout *buttons = row(7);
    QVERIFY(buttons);
    mainLayoutOf()->setSpacing(1);
    QCOMPARE(buttons->spacing(), 20);
    QCOMPARE(row(0)->spacing(), 1);
    for (int i = 0; i < buttons->count(); ++i)
        QCOMPARE(buttons->stretch(i), 0);
}

void TestWindowView::versionLabel()
{
    QCOMPARE(m_launcher->label(u"versionLabel"_s)->alignment(), Qt::AlignCenter);
}

void TestWindowView::playButtonIsCenteredBesideTheSettings()
{
    const QRect settings = m_launcher->button(u"Paramètres"_s)->geometry();
    const QRect play = m_launcher->playButton()->geometry();
    QCOMPARE(settings.left(), 40);
    const int before = play.left() - settings.right();
    const int behind = 960 - play.right();
    QVERIFY2(qAbs(before - behind) <= 40, qPrintable(u"%1 and %2"_s.arg(before).arg(behind)));
    QVERIFY(before > 100);
}

void TestWindowView::styleSheets_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("size");

    const QString betweenWindowRules = u"\n"_s;
    QTest::newRow("the template of the main window has 2,690 bytes")
        << StyleSheets::mainWindowTemplate()
        << sheetText(kWindowRules, betweenWindowRules, kPlaceholders) << 2690;
    QTest::newRow("the template of the settings dialog has 610 bytes")
        << StyleSheets::settingsDialogTemplate() << sheetText(kDialogRules, {}, kPlaceholders)
        << 610;
    QTest::newRow("the main window's sheet has its colours")
        << StyleSheets::mainWindow() << sheetText(kWindowRules, betweenWindowRules, kWindowColors)
        << -1;
    QTest::newRow("the settings dialog's sheet has its colours")
        << StyleSheets::settingsDialog() << sheetText(kDialogRules, {}, kDialogColors) << -1;
}

void TestWindowView::styleSheets()
{
    QFETCH(const QString, text);
    QFETCH(const int, size);
    // Line by line first: a difference is easier to see.
    QFETCH(const QString, expected);
    QCOMPARE(text.split(u'\n'), expected.split(u'\n'));
    QCOMPARE(text, expected);
    if (size >= 0)
        QCOMPARE(text.toUtf8().size(), size);
}

void TestWindowView::sheetIsOnTheWindowItself()
{
    QCOMPARE(window()->styleSheet(), sheetText(kWindowRules, u"\n"_s, kWindowColors));
    for (const QWidget *child : window()->findChildren<QWidget *>())
        QCOMPARE(child->styleSheet(), QString());
}

void TestWindowView::backdropIsAsIfScaledEachTime()
{
    const QImage expected = freshBackdrop(QSize(1000, 700));
    for (int paint = 0; paint < 3; ++paint)
        QCOMPARE(backdropOf(window()), expected);
}

void TestWindowView::backdropFollowsAnotherSize()
{
    QCOMPARE(backdropOf(window()), freshBackdrop(QSize(1000, 700)));
    window()->setFixedSize(640, 480);
    QCOMPARE(backdropOf(window()), freshBackdrop(QSize(640, 480)));
    window()->setFixedSize(1000, 700);
    QCOMPARE(backdropOf(window()), freshBackdrop(QSize(1000, 700)));
}

void TestWindowView::backdropOnScaledScreens_data()
{
    QTest::addColumn<qreal>("ratio");
    QTest::newRow("at 125 %") << 1.25;
    QTest::newRow("at 133 %, where the window has no whole number of pixels") << 4.0 / 3;
    QTest::newRow("at 150 %") << 1.5;
    QTest::newRow("at 175 %") << 1.75;
    QTest::newRow("at 200 %") << 2.0;
}

void TestWindowView::backdropOnScaledScreens()
{
    QFETCH(qreal, ratio);
    const QSize pixels = (QSizeF(window()->size()) * ratio).toSize();
    const auto blankScreen = [&] {
        QImage image(pixels, QImage::Format_RGB32);
        image.setDevicePixelRatio(ratio);
        image.fill(Qt::black);
        return image;
    };

    QImage painted = blankScreen();
    window()->render(&painted, {}, window()->rect(), QWidget::RenderFlags());

    // The picture pixel for pixel, not one that was made for another screen.
    const QRectF area(window()->rect());
    QImage expected = blankScreen();
    QPainter painter(&expected);
    painter.drawPixmap(area,
                       QPixmap(u":/images/background.png"_s)
                           .scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation),
                       QRectF());
    painter.fillRect(area, QColor(0, 0, 0, 150));
    painter.end();
    QCOMPARE(painted, expected);
    // Back on the first screen nothing of the other is left.
    QCOMPARE(backdropOf(window()), freshBackdrop(window()->size()));
}

void TestWindowView::backdropShowsTheWholePicture()
{
    // Squeezed, not cropped: each corner of the window shows that corner of the picture, and so on.
    // Averages, because the two ways of scaling differ in the details.
    const QImage squeezed = QImage(u":/images/background.png"_s)
                                .scaled(1000, 700, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    const QImage backdrop = backdropOf(window());
    for (int x = 0; x < 1000; x += 50) {
        for (int y = 0; y < 700; y += 50) {
            const QRect block(x, y, 50, 50);
            const double expected = brightness(squeezed, block) * (255 - 150) / 255;
            const double actual = brightness(backdrop, block);
            QVERIFY2(qAbs(actual - expected) < 3,
                     qPrintable(
                         u"%1 instead of %2 at %3, %4"_s.arg(actual).arg(expected).arg(x).arg(y)));
        }
    }
}

void TestWindowView::pictures_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("colorType");

    QTest::newRow("the background is RGB, 1920 × 1080")
        << u":/images/background.png"_s << QSize(1920, 1080) << 2;
    QTest::newRow("the logo is RGBA, 435 × 397") << u":/images/logo.png"_s << QSize(435, 397) << 6;
}

void TestWindowView::pictures()
{
    QFETCH(const QString, path);
    QFETCH(const QSize, size);
    QFETCH(const int, colorType);

    const QResource resource(path);
    QVERIFY(resource.isValid());
    QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    QVERIFY(bytes.startsWith("\x89PNG\r\n\x1a\n"));
    QCOMPARE(bytes.mid(12, 4), "IHDR"_ba);
    const auto number = [&bytes](qsizetype offset) {
        return int(qFromBigEndian<quint32>(bytes.constData() + offset));
    };
    QCOMPARE(QSize(number(16), number(20)), size);
    QCOMPARE(int(bytes.at(24)), 8); // bits in a channel
    QCOMPARE(int(bytes.at(25)), colorType);
    QCOMPARE(int(bytes.at(28)), 0); // not interlaced
    QCOMPARE(QPixmap(path).size(), size);
}

void TestWindowView::bundleIsRegisteredByPlainFunctions()
{
    QCOMPARE(QDir(u":/images"_s).entryList(), (QStringList{u"background.png"_s, u"logo.png"_s}));
    QCOMPARE(qCleanupResources_launcher(), 1);
    QVERIFY(!QFile::exists(u":/images/logo.png"_s));
    QCOMPARE(qInitResources_launcher(), 1);
    QVERIFY(QFile::exists(u":/images/logo.png"_s));
}

void TestWindowView::theIconHasAnEmblemInSmallSizes()
{
    const QIcon before = QApplication::windowIcon();
    const QString styleBefore = QApplication::style()->name();
    const QPalette paletteBefore = QApplication::palette();
    const auto restore = qScopeGuard([&] {
        QApplication::setWindowIcon(before);
        QApplication::setStyle(styleBefore);
        QApplication::setPalette(paletteBefore);
    });
    Identity::apply();

    const QIcon icon = QApplication::windowIcon();
    const QPixmap logo(u":/images/logo.png"_s);
    for (const int size : {16, 24, 32, 48}) {
        const QPixmap emblem(u":/icons/%1.png"_s.arg(size));
        QCOMPARE(emblem.size(), QSize(size, size));
        QCOMPARE(icon.pixmap(size, size).toImage(), emblem.toImage());
    }
    QCOMPARE(icon.pixmap(435, 397).toImage(), logo.toImage());
}

void TestWindowView::darkPaletteLeavesOtherRolesAlone()
{
    const QSet<QPalette::ColorRole> changed{
        QPalette::Window,         QPalette::WindowText,  QPalette::Base, QPalette::AlternateBase,
        QPalette::ToolTipBase,    QPalette::ToolTipText, QPalette::Text, QPalette::Button,
        QPalette::ButtonText,     QPalette::BrightText,  QPalette::Link, QPalette::Highlight,
        QPalette::HighlightedText};
    const QString styleBefore = QApplication::style()->name();
    const QPalette paletteBefore = QApplication::palette();
    const auto restore = qScopeGuard([&] {
        QApplication::setStyle(styleBefore);
        QApplication::setPalette(paletteBefore);
    });
    QApplication::setStyle(u"Fusion"_s);
    const QPalette untouched = QApplication::style()->standardPalette();

    Identity::apply();
    QCOMPARE(QApplication::style()->name(), u"fusion"_s);
    const QPalette dark = QApplication::palette();
    for (int number = 0; number < QPalette::NColorRoles; ++number) {
        const auto role = QPalette::ColorRole(number);
        for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
            if (changed.contains(role))
                QCOMPARE(dark.brush(group, role).style(), Qt::SolidPattern);
            else
                QCOMPARE(dark.brush(group, role), untouched.brush(group, role));
        }
    }
}

VEYRA_WIDGET_TEST_MAIN(TestWindowView)
#include "TestWindowView.moc"

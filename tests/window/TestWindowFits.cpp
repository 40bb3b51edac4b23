#include "app/Identity.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QFocusFrame>
#include <QFontDatabase>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QTest>
#include <QTextEdit>

#include <algorithm>
#include <cmath>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

const QStringList kFamilies{u"Noto Sans"_s, u"DejaVu Sans"_s, u"Liberation Sans"_s, u"Roboto"_s};

/// The widgets that show something; the central widget holds them all.
QList<QWidget *> shownWidgets(const LauncherFixture &launcher)
{
    QList<QWidget *> shown;
    const auto *ground = launcher.child<QWidget>(u"centralWidget"_s);
    for (QWidget *widget : ground->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly)) {
        if (widget->isVisible() && !qobject_cast<QFocusFrame *>(widget))
            shown.append(widget);
    }
    return shown;
}

QString describe(const QWidget *widget)
{
    const QRect r = widget->geometry();
    return u"%1 at %2,%3 %4x%5"_s.arg(widget->objectName())
        .arg(r.x())
        .arg(r.y())
        .arg(r.width())
        .arg(r.height());
}

/// Rows of a picture that show anything, as [first, last], in pixels of the picture.
std::pair<int, int> drawnRows(const QImage &image)
{
    int first = image.height();
    int last = -1;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(image.pixel(x, y)) > 8) {
                first = std::min(first, y);
                last = y;
            }
        }
    }
    return {first, last};
}

/// Rows in which two pictures of the same size differ visibly, as [first, last].
std::pair<int, int> differingRows(const QImage &one, const QImage &other)
{
    int first = one.height();
    int last = -1;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            if (std::abs(qGreen(one.pixel(x, y)) - qGreen(other.pixel(x, y))) > 8) {
                first = std::min(first, y);
                last = y;
            }
        }
    }
    return {first, last};
}

} // namespace

/// Nothing in the window overlaps or is cut, whatever font the system has and however it is scaled.
class TestWindowFits : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup() { m_launcher.reset(); }
    void nothingOverlapsOrIsCut_data();
    void nothingOverlapsOrIsCut();
    void theLogosDrawingIsWhole_data();
    void theLogosDrawingIsWhole();
    void noMessageMovesAnything_data();
    void noMessageMovesAnything();

private:
    void open(const QString &family);

    std::optional<LauncherFixture> m_launcher;
};

void TestWindowFits::initTestCase()
{
    Identity::apply();
    qsizetype installed = 0;
    for (const QString &family : kFamilies)
        installed += QFontDatabase::hasFamily(family) ? 1 : 0;
    QVERIFY2(installed >= 3, "Install the fonts named in scripts/test: three families are needed.");
}

void TestWindowFits::open(const QString &family)
{
    QApplication::setFont(QFont(family));
    m_launcher.emplace();
    m_launcher->build();
    m_launcher->label(u"playersLabel"_s)->setText(u"1234 joueurs connectés"_s);
    m_launcher->label(u"statusLabel"_s)->setText(u"Vérification du serveur..."_s);
    m_launcher->label(u"progressLabel"_s)
        ->setText(u"Mode hors ligne - Impossible de vérifier les mises à jour"_s);
    m_launcher->playButton()->setText(u"Téléchargement..."_s);
    m_launcher->window()->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_launcher->window()));
}

void TestWindowFits::nothingOverlapsOrIsCut_data()
{
    QTest::addColumn<QString>("family");
    for (const QString &family : kFamilies) {
        if (QFontDatabase::hasFamily(family))
            QTest::addRow("with %s", qPrintable(family)) << family;
    }
}

void TestWindowFits::nothingOverlapsOrIsCut()
{
    QFETCH(const QString, family);
    open(family);

    const QRect inside = m_launcher->child<QWidget>(u"centralWidget"_s)->rect();
    QCOMPARE(inside.size(), QSize(1000, 700));
    const QList<QWidget *> widgets = shownWidgets(*m_launcher);
    QCOMPARE(widgets.size(), 12);
    for (qsizetype i = 0; i < widgets.size(); ++i) {
        QVERIFY2(inside.contains(widgets[i]->geometry()), qPrintable(describe(widgets[i])));
        for (qsizetype j = i + 1; j < widgets.size(); ++j) {
            QVERIFY2(!widgets[i]->geometry().intersects(widgets[j]->geometry()),
                     qPrintable(describe(widgets[i]) + u" overlaps "_s + describe(widgets[j])));
        }
    }
    for (const QWidget *widget : widgets) {
        if (widget->objectName() == u"logoLabel" || qobject_cast<const QTextEdit *>(widget) ||
            qobject_cast<const QProgressBar *>(widget)) {
            continue;
        }
        // A fixed-size button is judged by its text, not by the size that its padding asks for.
        const auto *button = qobject_cast<const QPushButton *>(widget);
        const QSize needed = button
                                 ? button->fontMetrics().size(Qt::TextShowMnemonic, button->text())
                                 : widget->sizeHint();
        QVERIFY2(needed.width() <= widget->width() && needed.height() <= widget->height(),
                 qPrintable(describe(widget) + u" is too small for its text"_s));
    }
}

void TestWindowFits::theLogosDrawingIsWhole_data()
{
    nothingOverlapsOrIsCut_data();
}

void TestWindowFits::theLogosDrawingIsWhole()
{
    QFETCH(const QString, family);
    open(family);

    auto *label = m_launcher->label(u"logoLabel"_s);
    const QPixmap logo = label->pixmap();
    const auto [first, last] = drawnRows(logo.toImage());
    // As many pixels as the screen has for it, within its share of the window.
    QCOMPARE(logo.devicePixelRatio(), label->devicePixelRatio());
    const QSizeF size = logo.deviceIndependentSize();
    QVERIFY(size.height() <= 150.5 && size.height() > 149);
    QVERIFY(label->width() >= int(size.width()));

    // What the logo changes in the window, row by row.
    const QImage with = m_launcher->window()->grab(label->geometry()).toImage();
    QPixmap nothing(logo.size());
    nothing.setDevicePixelRatio(logo.devicePixelRatio());
    nothing.fill(Qt::transparent);
    label->setPixmap(nothing);
    const QImage without = m_launcher->window()->grab(label->geometry()).toImage();
    const auto [firstSeen, lastSeen] = differingRows(with, without);

    const qreal ratio = with.devicePixelRatio();
    const qreal cut = (size.height() - label->height()) / 2.0 * ratio;
    QVERIFY2(std::abs(firstSeen - (first - cut)) <= ratio + 1,
             qPrintable(u"first row seen: %1"_s.arg(firstSeen)));
    QVERIFY2(std::abs(lastSeen - (last + 1 - cut)) <= 2 * ratio + 1,
             qPrintable(u"last row seen: %1"_s.arg(lastSeen)));
    QVERIFY(firstSeen > 0 && lastSeen < with.height() - 1);
}

void TestWindowFits::noMessageMovesAnything_data()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("an empty one") << QString();
    QTest::newRow("one wider than the window") << u"Erreur de téléchargement: "_s.repeated(20);
    QTest::newRow("one of many lines") << u"Erreur d'extraction: ligne\n"_s.repeated(30);
}

void TestWindowFits::noMessageMovesAnything()
{
    QFETCH(const QString, message);
    for (const QString &style : {QString(), u"color: #f44336;"_s}) {
        open(kFamilies.first());
        QList<QRect> before;
        for (const QWidget *widget : shownWidgets(*m_launcher))
            before.append(widget->geometry());

        auto *label = m_launcher->label(u"progressLabel"_s);
        label->setStyleSheet(style);
        label->setText(message);
        QApplication::sendPostedEvents();
        QApplication::processEvents();
        QList<QRect> after;
        for (const QWidget *widget : shownWidgets(*m_launcher))
            after.append(widget->geometry());
        QCOMPARE(after, before);
    }
}

VEYRA_WIDGET_TEST_MAIN(TestWindowFits)
#include "TestWindowFits.moc"

#include "app/Identity.h"
#include "tests/support/TestEnvironment.h"

#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

/// What the menu shows, without the shortcuts that stand behind the texts.
QStringList textsOf(const QMenu &menu)
{
    QStringList texts;
    for (const QAction *action : menu.actions()) {
        if (!action->isSeparator())
            texts.append(action->text().section(u'\t', 0, 0));
    }
    return texts;
}

const QStringList kEditing{u"&Annuler"_s, u"&Rétablir"_s, u"Co&uper"_s,          u"&Copier"_s,
                           u"C&oller"_s,  u"Supprimer"_s, u"Tout sélectionner"_s};

} // namespace

/// The menus that Qt itself brings, in the language of the rest.
class TestFrenchMenus : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Identity::apply(); }
    void lineEdit();
    void textEdit();
    void readOnlyText();
    void scrollBar_data();
    void scrollBar();
    void dialogButtonsStayQts();
    void theSameWordsElsewhereStayQts();
};

void TestFrenchMenus::lineEdit()
{
    QLineEdit edit;
    const std::unique_ptr<QMenu> menu(edit.createStandardContextMenu());
    QCOMPARE(textsOf(*menu), kEditing);
}

void TestFrenchMenus::textEdit()
{
    QTextEdit edit;
    const std::unique_ptr<QMenu> menu(edit.createStandardContextMenu());
    QCOMPARE(textsOf(*menu).mid(0, kEditing.size()), kEditing);
}

void TestFrenchMenus::readOnlyText()
{
    QTextEdit edit;
    edit.setReadOnly(true);
    const std::unique_ptr<QMenu> menu(edit.createStandardContextMenu());
    QCOMPARE(textsOf(*menu), QStringList({u"&Copier"_s, u"Tout sélectionner"_s}));
}

void TestFrenchMenus::scrollBar_data()
{
    QTest::addColumn<Qt::Orientation>("orientation");
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("upright") << Qt::Vertical << QStringList{u"Défiler jusqu'ici"_s,
                                                            u"Début"_s,
                                                            u"Fin"_s,
                                                            u"Page précédente"_s,
                                                            u"Page suivante"_s,
                                                            u"Défiler vers le haut"_s,
                                                            u"Défiler vers le bas"_s};
    QTest::newRow("lying") << Qt::Horizontal << QStringList{u"Défiler jusqu'ici"_s,
                                                            u"Bord gauche"_s,
                                                            u"Bord droit"_s,
                                                            u"Page à gauche"_s,
                                                            u"Page à droite"_s,
                                                            u"Défiler vers la gauche"_s,
                                                            u"Défiler vers la droite"_s};
}

void TestFrenchMenus::scrollBar()
{
    QFETCH(const Qt::Orientation, orientation);
    QScrollBar bar(orientation);
    bar.setRange(0, 100);
    bar.show();
    QStringList shown;
    QTimer closer;
    connect(&closer, &QTimer::timeout, this, [&] {
        if (auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget())) {
            shown = textsOf(*menu);
            menu->close();
            closer.stop();
        }
    });
    closer.start(5);
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), bar.mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(&bar, &event);
    QTRY_VERIFY(!closer.isActive());
    QTEST(shown, "texts");
}

void TestFrenchMenus::dialogButtonsStayQts()
{
    const QDialogButtonBox box(QDialogButtonBox::Save | QDialogButtonBox::Cancel |
                               QDialogButtonBox::Yes | QDialogButtonBox::No | QDialogButtonBox::Ok);
    QCOMPARE(box.button(QDialogButtonBox::Save)->text(), u"Save"_s);
    QCOMPARE(box.button(QDialogButtonBox::Cancel)->text(), u"Cancel"_s);
    QCOMPARE(box.button(QDialogButtonBox::Yes)->text(), u"&Yes"_s);
    QCOMPARE(box.button(QDialogButtonBox::No)->text(), u"&No"_s);
    QCOMPARE(box.button(QDialogButtonBox::Ok)->text(), u"OK"_s);
}

void TestFrenchMenus::theSameWordsElsewhereStayQts()
{
    for (const char *context : {"QFileDialog", "QDialogButtonBox", "QPlatformTheme"})
        QCOMPARE(QCoreApplication::translate(context, "Delete"), u"Delete"_s);
    QCOMPARE(QCoreApplication::translate("QLineEdit", "Delete"), u"Supprimer"_s);
}

VEYRA_WIDGET_TEST_MAIN(TestFrenchMenus)
#include "TestFrenchMenus.moc"

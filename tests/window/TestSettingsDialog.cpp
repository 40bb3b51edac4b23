#include "app/MainWindow.h"
#include "config/Config.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "ui/StyleSheets.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

QString configFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + u"/config.json"_s;
}

} // namespace

/// The settings dialog, opened and used as a person would.
class TestSettingsDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void look();
    void layout();
    void theCaptionIsCloseToItsField();
    void theToolTipTellsTheWholePath_data();
    void theToolTipTellsTheWholePath();
    void showsTheStoredFolder();
    void savingStoresTheFolderAsTyped_data();
    void savingStoresTheFolderAsTyped();
    void savingDropsOtherKeys();
    void savingWithUnwritableFile();
    void leavingChangesNothing_data();
    void leavingChangesNothing();
    void enterInTheFieldSaves();
    void pickerStartsAtTheStoredFolder();
    void pickedFolderReplacesTheText();
    void cancelledPickerKeepsTheTypedText_data();
    void cancelledPickerKeepsTheTypedText();
    void pickedFolderIsStoredBySavingOnly();
    void isGoneAfterwards();

private:
    struct Parts
    {
        QDialog *dialog;
        QLineEdit *field;
        QPushButton *browse;
        QPushButton *save;
        QPushButton *cancel;
    };

    /// Opens the dialog with a click on its button, lets `user` act in it and closes what is left
    /// open.
    void use(const std::function<void(const Parts &)> &user);
    /// Opens the folder picker from the dialog and lets `user` act in it.
    void pick(const Parts &parts, const std::function<void(QFileDialog &)> &user);
    static void click(QPushButton *button) { QTest::mouseClick(button, Qt::LeftButton); }

    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestSettingsDialog::initTestCase()
{
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
}

void TestSettingsDialog::init()
{
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->open();
    QFile::remove(configFile());
}

void TestSettingsDialog::cleanup()
{
    m_launcher.reset();
    QDir().rmdir(configFile());
    QFile::remove(configFile());
}

void TestSettingsDialog::use(const std::function<void(const Parts &)> &user)
{
    bool used = false;
    QTimer::singleShot(0, this, [&used, &user] {
        QPointer<QDialog> dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        const auto *box = dialog->findChild<QDialogButtonBox *>();
        const Parts parts{dialog, dialog->findChild<QLineEdit *>(), nullptr,
                          box->button(QDialogButtonBox::Save),
                          box->button(QDialogButtonBox::Cancel)};
        Parts all = parts;
        for (QPushButton *button : dialog->findChildren<QPushButton *>()) {
            if (button->text() == u"Parcourir"_s)
                all.browse = button;
        }
        user(all);
        used = true;
        if (dialog && dialog->isVisible())
            dialog->reject();
    });
    click(m_launcher->button(u"Paramètres"_s));
    QVERIFY2(used, "no dialog opened");
}

void TestSettingsDialog::pick(const Parts &parts, const std::function<void(QFileDialog &)> &user)
{
    bool used = false;
    QTimer::singleShot(0, this, [&used, &user] {
        QPointer<QFileDialog> picker =
            qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
        if (!picker)
            return;
        user(*picker);
        used = true;
        if (picker && picker->isVisible())
            picker->reject();
    });
    click(parts.browse);
    QVERIFY2(used, "no folder picker opened");
}

void TestSettingsDialog::look()
{
    use([this](const Parts &parts) {
        QCOMPARE(parts.dialog->windowTitle(), u"Paramètres"_s);
        QCOMPARE(parts.dialog->minimumSize(), QSize(500, 200));
        QCOMPARE(parts.dialog->maximumSize(), QSize(500, 200));
        QCOMPARE(parts.dialog->size(), QSize(500, 200));
        QCOMPARE(parts.dialog->styleSheet(), StyleSheets::settingsDialog());
        QCOMPARE(parts.dialog->parentWidget(), m_launcher->window());
        QVERIFY(parts.dialog->isModal());
        QCOMPARE(QByteArray(parts.dialog->metaObject()->className()), "QDialog"_ba);
        const auto *box = parts.dialog->findChild<QDialogButtonBox *>();
        QCOMPARE(box->standardButtons(), QDialogButtonBox::Save | QDialogButtonBox::Cancel);
        QVERIFY(parts.browse);
        QCOMPARE(parts.dialog->findChildren<QPushButton *>().size(), 3);
        for (const QWidget *widget :
             QList<QWidget *>{parts.dialog, parts.field, parts.browse, parts.save, parts.cancel})
            QCOMPARE(widget->objectName(), QString());
    });
}

void TestSettingsDialog::layout()
{
    use([](const Parts &parts) {
        const auto *rows = qobject_cast<QVBoxLayout *>(parts.dialog->layout());
        QVERIFY(rows);
        QCOMPARE(rows->count(), 3);
        const auto *caption = qobject_cast<QLabel *>(rows->itemAt(0)->widget());
        QVERIFY(caption);
        QCOMPARE(caption->text(), u"Chemin d'installation de Dofus:"_s);
        const auto *pathRow = qobject_cast<QHBoxLayout *>(rows->itemAt(1)->layout());
        QVERIFY(pathRow);
        QCOMPARE(pathRow->count(), 2);
        QCOMPARE(pathRow->itemAt(0)->widget(), parts.field);
        QCOMPARE(pathRow->itemAt(1)->widget(), parts.browse);
        QCOMPARE(rows->itemAt(2)->widget(), parts.dialog->findChild<QDialogButtonBox *>());
    });
}

void TestSettingsDialog::theCaptionIsCloseToItsField()
{
    use([](const Parts &parts) {
        const auto *caption = parts.dialog->findChild<QLabel *>();
        const int fontHeight = caption->fontMetrics().height();
        QVERIFY(caption->height() < 2 * fontHeight);
        const int gap = parts.field->geometry().top() - caption->geometry().bottom();
        QVERIFY2(gap > 0 && gap < fontHeight, qPrintable(QString::number(gap)));
        QCOMPARE(parts.field->geometry().center().y(), parts.browse->geometry().center().y());
        // Room for the focus ring of either row.
        const int buttons = parts.save->mapTo(parts.dialog, QPoint()).y();
        QVERIFY(buttons - parts.browse->geometry().bottom() > 8);
    });
}

void TestSettingsDialog::theToolTipTellsTheWholePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("toolTip");
    QTest::newRow("a folder") << u"C:/Jeux/Veyra"_s << u"C:/Jeux/Veyra"_s;
    QTest::newRow("no folder") << QString() << QString();
    QTest::newRow("a path wider than the screen, in lines")
        << QString(200, u'x')
        << QString(80, u'x') + u'\n' + QString(80, u'x') + u'\n' + QString(40, u'x');
    QTest::newRow("exactly one line") << QString(80, u'x') << QString(80, u'x');
    QTest::newRow("what looks like HTML is shown as it is")
        << u"/jeux/<b>gras</b>"_s << u"/jeux/&lt;b&gt;gras&lt;/b&gt;"_s;
}

void TestSettingsDialog::theToolTipTellsTheWholePath()
{
    QFETCH(const QString, path);
    QFETCH(const QString, toolTip);
    Config::instance().setDofusPath(path);
    use([&toolTip](const Parts &parts) {
        QCOMPARE(parts.field->toolTip(), toolTip);
        parts.field->setText(u"/typed"_s);
        QCOMPARE(parts.field->toolTip(), u"/typed"_s);
    });
}

void TestSettingsDialog::showsTheStoredFolder()
{
    Config::instance().setDofusPath(u"/a/stored folder/é"_s);
    use([](const Parts &parts) { QCOMPARE(parts.field->text(), u"/a/stored folder/é"_s); });
}

void TestSettingsDialog::savingStoresTheFolderAsTyped_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QByteArray>("file");

    QTest::newRow("a folder") << u"/opt/game"_s << "{\n    \"dofus_path\": \"/opt/game\"\n}\n"_ba;
    QTest::newRow("blanks are kept")
        << u"  /opt/game  "_s << "{\n    \"dofus_path\": \"  /opt/game  \"\n}\n"_ba;
    QTest::newRow("accents and quotes")
        << u"/été \"2\""_s << "{\n    \"dofus_path\": \"/été \\\"2\\\"\"\n}\n"_ba;
    QTest::newRow("a folder that does not exist is neither made nor refused")
        << u"/nowhere/at/all"_s << "{\n    \"dofus_path\": \"/nowhere/at/all\"\n}\n"_ba;
    QTest::newRow("nothing at all") << QString() << "{\n    \"dofus_path\": \"\"\n}\n"_ba;
}

void TestSettingsDialog::savingStoresTheFolderAsTyped()
{
    QFETCH(const QString, typed);
    use([&typed](const Parts &parts) {
        parts.field->setFocus();
        parts.field->selectAll();
        QTest::keyClick(parts.field, Qt::Key_Delete);
        parts.field->insert(typed);
        click(parts.save);
        QVERIFY(!parts.dialog->isVisible());
    });
    QCOMPARE(Config::instance().dofusPath(), typed);
    QTEST(Files::read(configFile()), "file");
    QVERIFY(!QFile::exists(u"/nowhere"_s));
}

void TestSettingsDialog::savingDropsOtherKeys()
{
    Files::write(configFile(), R"({"dofus_path": "/old", "extra": 1, "more": {"a": [1, 2]}})");
    use([](const Parts &parts) {
        parts.field->setText(u"/new"_s);
        click(parts.save);
    });
    QCOMPARE(Files::read(configFile()), "{\n    \"dofus_path\": \"/new\"\n}\n"_ba);
}

void TestSettingsDialog::savingWithUnwritableFile()
{
    QVERIFY(QDir().mkpath(configFile())); // a folder in the file's place
    BoxAnswers boxes;
    use([](const Parts &parts) {
        parts.field->setText(u"/new"_s);
        click(parts.save);
        QVERIFY(!parts.dialog->isVisible());
    });
    QCOMPARE(Config::instance().dofusPath(), u"/new"_s);
    waitForStragglers();
    QVERIFY(boxes.seen().isEmpty());
}

void TestSettingsDialog::leavingChangesNothing_data()
{
    QTest::addColumn<std::function<void(const Parts &)>>("leave");
    using Leave = std::function<void(const Parts &)>;
    QTest::newRow("by Cancel") << Leave([](const Parts &parts) { click(parts.cancel); });
    QTest::newRow("by Escape") << Leave(
        [](const Parts &parts) { QTest::keyClick(parts.dialog, Qt::Key_Escape); });
    QTest::newRow("by Escape in the field")
        << Leave([](const Parts &parts) { QTest::keyClick(parts.field, Qt::Key_Escape); });
    QTest::newRow("by the title bar") << Leave([](const Parts &parts) { parts.dialog->close(); });
}

void TestSettingsDialog::leavingChangesNothing()
{
    using Leave = std::function<void(const Parts &)>;
    QFETCH(const Leave, leave);
    const QByteArray before = R"({"dofus_path": "/old", "extra": 1})";
    Files::write(configFile(), before);
    Config::instance().setDofusPath(u"/old"_s);
    use([&leave](const Parts &parts) {
        parts.field->setText(u"/new"_s);
        leave(parts);
        QVERIFY(!parts.dialog->isVisible());
    });
    QCOMPARE(Config::instance().dofusPath(), u"/old"_s);
    QCOMPARE(Files::read(configFile()), before);
}

void TestSettingsDialog::enterInTheFieldSaves()
{
    use([](const Parts &parts) {
        parts.field->setFocus();
        parts.field->setText(u"/new"_s);
        QTest::keyClick(parts.field, Qt::Key_Return);
        QVERIFY(!parts.dialog->isVisible());
    });
    QCOMPARE(Config::instance().dofusPath(), u"/new"_s);
    QCOMPARE(Files::read(configFile()), "{\n    \"dofus_path\": \"/new\"\n}\n"_ba);
}

void TestSettingsDialog::pickerStartsAtTheStoredFolder()
{
    const QTemporaryDir typed;
    use([this, &typed](const Parts &parts) {
        parts.field->setText(typed.path());
        pick(parts, [this](QFileDialog &picker) {
            QCOMPARE(picker.windowTitle(), u"Sélectionner le dossier Dofus"_s);
            QCOMPARE(picker.directory().absolutePath(), m_launcher->gameFolder());
            QCOMPARE(picker.fileMode(), QFileDialog::Directory);
            QVERIFY(picker.testOption(QFileDialog::ShowDirsOnly));
            QCOMPARE(picker.parentWidget(), m_launcher->window());
        });
    });
}

void TestSettingsDialog::pickedFolderReplacesTheText()
{
    QVERIFY(QDir(m_launcher->gameFolder()).mkdir(u"chosen"_s));
    const QString chosen = m_launcher->gameFolder() + u"/chosen"_s;
    use([this, &chosen](const Parts &parts) {
        parts.field->setText(u"/typed"_s);
        pick(parts, [&chosen](QFileDialog &picker) {
            auto *name = picker.findChild<QLineEdit *>(u"fileNameEdit"_s);
            QVERIFY(name);
            name->setText(chosen);
            QTest::keyClick(name, Qt::Key_Return);
            QVERIFY(!picker.isVisible());
        });
        QCOMPARE(parts.field->text(), chosen);
        QVERIFY(parts.dialog->isVisible());
    });
}

void TestSettingsDialog::cancelledPickerKeepsTheTypedText_data()
{
    QTest::addColumn<bool>("byEscape");
    QTest::newRow("by Cancel") << false;
    QTest::newRow("by Escape") << true;
}

void TestSettingsDialog::cancelledPickerKeepsTheTypedText()
{
    QFETCH(const bool, byEscape);
    use([this, byEscape](const Parts &parts) {
        parts.field->setText(u"/typed by hand"_s);
        pick(parts, [byEscape](QFileDialog &picker) {
            if (byEscape)
                QTest::keyClick(&picker, Qt::Key_Escape);
            else
                click(picker.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Cancel));
            QVERIFY(!picker.isVisible());
        });
        QCOMPARE(parts.field->text(), u"/typed by hand"_s);
        QVERIFY(parts.dialog->isVisible());
    });
}

void TestSettingsDialog::pickedFolderIsStoredBySavingOnly()
{
    const QString stored = Config::instance().dofusPath();
    const QTemporaryDir chosen;
    const auto choose = [&chosen](QFileDialog &picker) {
        auto *name = picker.findChild<QLineEdit *>(u"fileNameEdit"_s);
        name->setText(chosen.path());
        QTest::keyClick(name, Qt::Key_Return);
    };
    use([this, &choose](const Parts &parts) {
        pick(parts, choose);
        click(parts.cancel);
    });
    QCOMPARE(Config::instance().dofusPath(), stored);
    QVERIFY(!QFile::exists(configFile()));

    use([this, &choose](const Parts &parts) {
        pick(parts, choose);
        click(parts.save);
    });
    QCOMPARE(Config::instance().dofusPath(), chosen.path());
    QCOMPARE(Files::read(configFile()),
             "{\n    \"dofus_path\": \""_ba + chosen.path().toUtf8() + "\"\n}\n");
}

void TestSettingsDialog::isGoneAfterwards()
{
    QPointer<QDialog> dialog;
    use([&dialog](const Parts &parts) { dialog = parts.dialog; });
    QVERIFY(dialog.isNull());
    QVERIFY(m_launcher->window()->findChildren<QDialog *>().isEmpty());
}

VEYRA_WIDGET_TEST_MAIN(TestSettingsDialog)
#include "TestSettingsDialog.moc"

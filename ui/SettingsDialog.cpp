#include "app/MainWindow.h"

#include "config/Config.h"
#include "ui/StyleSheets.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTextDocument>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype kToolTipLine = 80; // characters; a longer line may leave the screen

/// The path in lines: a tool tip breaks none by itself. Nor is it HTML.
QString asToolTip(QString path)
{
    for (qsizetype end = kToolTipLine; end < path.size(); end += kToolTipLine + 1)
        path.insert(end, u'\n');
    return Qt::mightBeRichText(path) ? path.toHtmlEscaped() : path;
}

} // namespace

void MainWindow::onSettingsClicked()
{
    QDialog dialog(this);
    dialog.setWindowTitle(u"Paramètres"_s);
    dialog.setFixedSize(500, 200);
    dialog.setStyleSheet(StyleSheets::settingsDialog());

    auto *layout = new QVBoxLayout(&dialog);
    auto *caption = new QLabel(u"Chemin d'installation de Dofus:"_s);
    caption->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed); // close to its field
    layout->addWidget(caption);
    auto *pathRow = new QHBoxLayout;
    auto *pathEdit = new QLineEdit(Config::instance().dofusPath());
    caption->setBuddy(pathEdit); // what a screen reader calls the field
    auto *browseButton = new QPushButton(u"Parcourir"_s);
    pathRow->addWidget(pathEdit);
    pathRow->addWidget(browseButton);
    layout->addLayout(pathRow, 1); // what room is left comes below the field
    layout->setAlignment(pathRow, Qt::AlignTop);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    layout->addWidget(buttons);

    const auto showWholePath = [pathEdit] { pathEdit->setToolTip(asToolTip(pathEdit->text())); };
    showWholePath();
    connect(pathEdit, &QLineEdit::textChanged, pathEdit, showWholePath);

    connect(browseButton, &QPushButton::clicked, &dialog, [this, pathEdit] {
        // Starts at the stored folder, not at what is typed in the field.
        const QString folder = QFileDialog::getExistingDirectory(
            this, u"Sélectionner le dossier Dofus"_s, Config::instance().dofusPath(),
            QFileDialog::ShowDirsOnly);
        if (!folder.isEmpty())
            pathEdit->setText(folder);
    });
    connect(buttons, &QDialogButtonBox::accepted, &dialog, [pathEdit, &dialog] {
        Config::instance().setDofusPath(pathEdit->text());
        Config::instance().save();
        dialog.accept();
    });
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);

    dialog.exec();
}

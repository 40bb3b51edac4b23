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
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

void MainWindow::onSettingsClicked()
{
    QDialog dialog(this);
    dialog.setWindowTitle(u"Paramètres"_s);
    dialog.setFixedSize(500, 200);
    dialog.setStyleSheet(StyleSheets::settingsDialog());

    auto *layout = new QVBoxLayout(&dialog);
    auto *caption = new QLabel(u"Chemin d'installation de Dofus:"_s);
    layout->addWidget(caption);
    auto *pathRow = new QHBoxLayout;
    auto *pathEdit = new QLineEdit(Config::instance().dofusPath());
    caption->setBuddy(pathEdit); // what a screen reader calls the field
    auto *browseButton = new QPushButton(u"Parcourir"_s);
    pathRow->addWidget(pathEdit);
    pathRow->addWidget(browseButton);
    layout->addLayout(pathRow);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    layout->addWidget(buttons);

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

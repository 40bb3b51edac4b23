#include "ui/StyleSheets.h"

#include "config/Colors.h"

using namespace Qt::Literals::StringLiterals;

namespace StyleSheets {

QString mainWindowTemplate()
{
    return uR"(
        #centralWidget {
            background: transparent;
        }

        #titleLabel {
            font-size: 36px;
            font-weight: bold;
            color: %1;
        }

        #statusLabel {
            font-size: 16px;
            font-weight: bold;
            color: %2;
            padding: 10px 20px;
            background: rgba(0, 0, 0, 0.5);
            border-radius: 10px;
        }

        #playersLabel {
            font-size: 14px;
            color: %3;
            padding: 10px 20px;
            background: rgba(0, 0, 0, 0.5);
            border-radius: 10px;
        }

        #sectionTitle {
            font-size: 18px;
            font-weight: bold;
            color: %3;
            margin-top: 10px;
        }

        #newsWidget {
            background: rgba(0, 0, 0, 0.6);
            border: 1px solid %4;
            border-radius: 10px;
            color: %3;
            font-size: 13px;
            padding: 15px;
        }

        #progressLabel {
            font-size: 14px;
            color: %3;
        }

        #progressBar {
            background: rgba(0, 0, 0, 0.5);
            border: none;
            border-radius: 12px;
        }

        #progressBar::chunk {
            background: qlineargradient(x1:0, y1:0, x2:1, y2:0,
                stop:0 %1, stop:1 %5);
            border-radius: 12px;
        }

        #playButton {
            font-size: 22px;
            font-weight: bold;
            color: white;
            background: qlineargradient(x1:0, y1:0, x2:1, y2:0,
                stop:0 %1, stop:1 %5);
            border: none;
            border-radius: 15px;
        }

        #playButton:hover {
            background: qlineargradient(x1:0, y1:0, x2:1, y2:0,
                stop:0 %5, stop:1 %1);
        }

        #playButton:disabled {
            background: #555;
            color: #999;
        }

        #settingsButton {
            font-size: 14px;
            font-weight: bold;
            color: %3;
            background: transparent;
            border: 2px solid %1;
            border-radius: 10px;
        }

        #settingsButton:hover {
            background: rgba(16, 185, 129, 0.2);
        }

        #socialButton {
            font-size: 12px;
            font-weight: bold;
            color: %3;
            background: rgba(0, 0, 0, 0.5);
            border: 1px solid %4;
            border-radius: 8px;
            padding: 8px 15px;
        }

        #socialButton:hover {
            background: rgba(16, 185, 129, 0.3);
            border-color: %1;
        }

        #versionLabel {
            font-size: 11px;
            color: %6;
        }
    )"_s;
}

QString settingsDialogTemplate()
{
    return uR"(
        QDialog {
            background: %1;
        }
        QLabel {
            color: %2;
            font-size: 14px;
        }
        QLineEdit {
            background: %3;
            color: %2;
            border: 1px solid %4;
            border-radius: 5px;
            padding: 8px;
            font-size: 13px;
        }
        QPushButton {
            background: %4;
            color: %2;
            border: none;
            border-radius: 5px;
            padding: 10px 20px;
            font-size: 13px;
        }
        QPushButton:hover {
            background: %5;
        }
    )"_s;
}

QString mainWindow()
{
    return mainWindowTemplate()
        .arg(Colors::kAccent)
        .arg(Colors::kAccent)
        .arg(Colors::kText)
        .arg(Colors::kPanel)
        .arg(Colors::kDarkerGreen)
        .arg(Colors::kMuted);
}

QString settingsDialog()
{
    return settingsDialogTemplate()
        .arg(Colors::kDarkest)
        .arg(Colors::kText)
        .arg(Colors::kPanel)
        .arg(Colors::kAccent)
        .arg(Colors::kDarkerGreen);
}

} // namespace StyleSheets

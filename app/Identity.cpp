#include "app/Identity.h"

#include "config/BuildSettings.h"
#include "config/Colors.h"
#include "config/Product.h"
#include "ui/FrenchMenus.h"

#include <QApplication>
#include <QColor>
#include <QIcon>
#include <QPalette>
#include <QPixmap>

using namespace Qt::Literals::StringLiterals;

namespace {

struct RoleColor
{
    QPalette::ColorRole role;
    QLatin1StringView color;
};

// Tool tips are inverted against the dark theme on purpose.
constexpr RoleColor kDarkPalette[] = {
    {QPalette::Window, Colors::kDarkest},
    {QPalette::WindowText, Colors::kText},
    {QPalette::Base, Colors::kPanel},
    {QPalette::AlternateBase, Colors::kDarkest},
    {QPalette::ToolTipBase, Colors::kText},
    {QPalette::ToolTipText, Colors::kDarkest},
    {QPalette::Text, Colors::kText},
    {QPalette::Button, Colors::kPanel},
    {QPalette::ButtonText, Colors::kText},
    {QPalette::BrightText, Colors::kAccent},
    {QPalette::Link, Colors::kAccent},
    {QPalette::Highlight, Colors::kAccent},
    {QPalette::HighlightedText, Colors::kText},
};

QPalette darkPalette()
{
    QPalette palette;
    for (const auto &[role, color] : kDarkPalette)
        palette.setBrush(QPalette::All, role, QBrush(QColor(color), Qt::SolidPattern));
    return palette;
}

/// The logo, and in the sizes of title and task bars, where its word cannot be read, its emblem.
QIcon windowIcon()
{
    // By way of a pixmap: Qt keeps that, and the window's logo need not be decoded a second time.
    QIcon icon(QPixmap(u":/images/logo.png"_s));
    for (const int size : {16, 24, 32, 48})
        icon.addPixmap(QPixmap(u":/icons/%1.png"_s.arg(size)));
    return icon;
}

} // namespace

void Identity::apply()
{
    QApplication::setApplicationName(Product::kName);
    QApplication::setApplicationVersion(BuildSettings::launcherVersion());
    QApplication::setOrganizationName(Product::kOrganization);
    QApplication::setWindowIcon(windowIcon());
    QApplication::setStyle(u"Fusion"_s);
    QApplication::setPalette(darkPalette());
    QApplication::installTranslator(new FrenchMenus(qApp));
}

#include "ui/FrenchMenus.h"

#include <QLatin1StringView>

#include <algorithm>
#include <iterator>

namespace {

struct Translation
{
    QLatin1StringView source;
    const char16_t *french;
};

constexpr QLatin1StringView kContexts[] = {
    QLatin1StringView("QLineEdit"),
    QLatin1StringView("QWidgetTextControl"), // the menu of every QTextEdit
    QLatin1StringView("QScrollBar"),
};

constexpr Translation kTranslations[] = {
    {QLatin1StringView("&Undo"), u"&Annuler"},
    {QLatin1StringView("&Redo"), u"&Rétablir"},
    {QLatin1StringView("Cu&t"), u"Co&uper"},
    {QLatin1StringView("&Copy"), u"&Copier"},
    {QLatin1StringView("Copy &Link Location"), u"Copier l'adresse du &lien"},
    {QLatin1StringView("&Paste"), u"C&oller"},
    {QLatin1StringView("Delete"), u"Supprimer"},
    {QLatin1StringView("Select All"), u"Tout sélectionner"},
    {QLatin1StringView("Scroll here"), u"Défiler jusqu'ici"},
    {QLatin1StringView("Top"), u"Début"},
    {QLatin1StringView("Bottom"), u"Fin"},
    {QLatin1StringView("Left edge"), u"Bord gauche"},
    {QLatin1StringView("Right edge"), u"Bord droit"},
    {QLatin1StringView("Page up"), u"Page précédente"},
    {QLatin1StringView("Page down"), u"Page suivante"},
    {QLatin1StringView("Page left"), u"Page à gauche"},
    {QLatin1StringView("Page right"), u"Page à droite"},
    {QLatin1StringView("Scroll up"), u"Défiler vers le haut"},
    {QLatin1StringView("Scroll down"), u"Défiler vers le bas"},
    {QLatin1StringView("Scroll left"), u"Défiler vers la gauche"},
    {QLatin1StringView("Scroll right"), u"Défiler vers la droite"},
};

} // namespace

QString FrenchMenus::translate(const char *context, const char *sourceText, const char *, int) const
{
    if (std::find(std::begin(kContexts), std::end(kContexts), QLatin1StringView(context)) ==
        std::end(kContexts)) {
        return QString();
    }
    const QLatin1StringView source(sourceText);
    const auto *found = std::find_if(std::begin(kTranslations), std::end(kTranslations),
                                     [source](const Translation &t) { return t.source == source; });
    return found == std::end(kTranslations) ? QString() : QString::fromUtf16(found->french);
}

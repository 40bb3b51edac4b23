#include "ui/FrenchMenus.h"

#include <QLatin1StringView>

#include <algorithm>
#include <iterator>

using namespace Qt::Literals::StringLiterals;

namespace {

struct Translation
{
    QLatin1StringView source;
    const char16_t *french;
};

constexpr QLatin1StringView kContexts[] = {
    "QLineEdit"_L1,
    "QWidgetTextControl"_L1, // the menu of every QTextEdit
    "QScrollBar"_L1,
};

constexpr Translation kTranslations[] = {
    {"&Undo"_L1, u"&Annuler"},
    {"&Redo"_L1, u"&Rétablir"},
    {"Cu&t"_L1, u"Co&uper"},
    {"&Copy"_L1, u"&Copier"},
    {"Copy &Link Location"_L1, u"Copier l'adresse du &lien"},
    {"&Paste"_L1, u"C&oller"},
    {"Delete"_L1, u"Supprimer"},
    {"Select All"_L1, u"Tout sélectionner"},
    {"Scroll here"_L1, u"Défiler jusqu'ici"},
    {"Top"_L1, u"Début"},
    {"Bottom"_L1, u"Fin"},
    {"Left edge"_L1, u"Bord gauche"},
    {"Right edge"_L1, u"Bord droit"},
    {"Page up"_L1, u"Page précédente"},
    {"Page down"_L1, u"Page suivante"},
    {"Page left"_L1, u"Page à gauche"},
    {"Page right"_L1, u"Page à droite"},
    {"Scroll up"_L1, u"Défiler vers le haut"},
    {"Scroll down"_L1, u"Défiler vers le bas"},
    {"Scroll left"_L1, u"Défiler vers la gauche"},
    {"Scroll right"_L1, u"Défiler vers la droite"},
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

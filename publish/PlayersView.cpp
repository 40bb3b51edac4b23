#include "publish/PlayersView.h"

#include "publish/Site.h"

using namespace Qt::Literals::StringLiterals;

PlayersView PlayersView::of(const QString &place)
{
    if (place == Site::kStatus) {
        return {u"« Serveur hors ligne »"_s, u"« Vérification du serveur... », sans fin"_s,
                u"« Serveur hors ligne »"_s};
    }
    if (place == Site::kNews) {
        return {u"« Bienvenue sur Veyra ! » au lieu des actualités"_s,
                u"« Chargement des actualités... », sans fin"_s,
                u"« Aucune actualité pour le moment. »"_s};
    }
    if (place == Site::kLauncherVersion) {
        const QString nothing = u"aucune mise à jour du launcher n'est proposée"_s;
        return {nothing,
                u"« Vérification des mises à jour du launcher... », sans fin : personne ne joue"_s,
                nothing};
    }
    if (place == Site::kManifest) {
        return {u"« Mode hors ligne » après l'installation, sans vérification"_s,
                u"« Vérification des mises à jour... » après l'installation, sans fin"_s,
                u"« Erreur: Format de version invalide » après l'installation"_s};
    }
    const QString endless = u"un téléchargement qui n'avance plus, sans fin"_s;
    if (place == Site::kClientArchive)
        return {u"« Erreur de téléchargement »"_s, endless, u"« Erreur d'extraction »"_s};
    return {u"« Erreur de mise à jour »"_s, endless,
            u"la mise à jour est téléchargée, puis refusée"_s};
}

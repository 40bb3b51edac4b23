#include "publish/Findings.h"

#include "publish/Console.h"

#include <QJsonObject>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const QList<Mistake> &catalogue()
{
    constexpr bool kError = true;
    constexpr bool kWarning = false;
    static const QList<Mistake> kMistakes{
        {u"M01"_s, kError,
         u"la vérification compte ces fichiers comme différents, à chaque installation"_s,
         u"écrire les sommes en minuscules ; « veyra-publier client » le fait"_s},
        {u"M02"_s, kError,
         u"la vérification compte ces fichiers comme différents, à chaque installation"_s,
         u"écrire des sommes SHA-256 ; « veyra-publier client » le fait"_s},
        {u"M03"_s, kError, u"« Prêt à jouer ! », sans qu'aucun fichier ait été vérifié"_s,
         u"un tableau « files » d'objets « name » et « hash », en minuscules"_s},
        {u"M04"_s, kError, u"des fichiers manquent, ou portent un nom avec « \\ »"_s,
         u"séparer les dossiers par « / »"_s},
        {u"M05"_s, kError, u"la vérification ne trouve pas ces fichiers hors de Windows"_s,
         u"écrire les noms comme dans l'archive, majuscules comprises"_s},
        {u"M06"_s, kError, u"la vérification ne trouve aucun de ces fichiers"_s,
         u"écrire dans le manifeste le même dossier « Client 2.51/ » que dans l'archive"_s},
        {u"M07"_s, kError, u"les noms accentués arrivent abîmés, le jeu ne les trouve pas"_s,
         u"refaire l'archive avec « veyra-publier client », pas avec « zip -r »"_s},
        {u"M08"_s, kError,
         u"une décompression coupée (courant, disque plein) passe pour un client installé"_s,
         u"mettre DofusInvoker.swf en dernier dans l'archive"_s},
        {u"M09"_s, kError, u"tout est téléchargé à nouveau à chaque démarrage"_s,
         u"mettre DofusInvoker.swf à la racine de l'archive ou dans « Client 2.51/ »"_s},
        {u"M10"_s, kError, u"la vérification compte des fichiers comme différents"_s,
         u"publier l'archive et le manifeste du même client"_s},
        {u"M11"_s, kWarning, u"rien, mais ces fichiers ne sont pas vérifiés"_s,
         u"publier l'archive et le manifeste du même client"_s},
        {u"M12"_s, kError, u"« Erreur d'extraction »"_s,
         u"envoyer de nouveau l'archive, entière"_s},
        {u"M13"_s, kError, u"« JOUER » répond « Dofus.exe introuvable »"_s,
         u"mettre Dofus.exe à la racine de l'archive ou dans « Client 2.51/ »"_s},
        {u"M14"_s, kError, u"« Erreur d'extraction »"_s,
         u"n'utiliser que les méthodes Store et Deflate, sans chiffrement"_s},
        {u"M15"_s, kError, u"ces fichiers ne peuvent pas être créés, ou s'écrasent"_s,
         u"renommer ces fichiers"_s},
        {u"M16"_s, kError, u"une installation qui échoue, ou des fichiers différents"_s,
         u"publier l'archive et le manifeste du même client"_s},
        {u"M17"_s, kError,
         u"la vérification ne trouve pas ces fichiers : leurs accents sont d'autres caractères"_s,
         u"écrire les noms du manifeste et de l'archive sous la même forme (NFC) ; « veyra-publier "
         u"client » le fait"_s},
        {u"M18"_s, kError,
         u"un petit fichier de texte à la place du fichier : la vérification le compte comme "
         u"différent"_s,
         u"mettre le fichier lui-même dans l'archive, pas un lien (« zip » sans « -y »)"_s},
        {u"M19"_s, kWarning, u"la décompression de Windows peut échouer"_s,
         u"découper ce fichier, ou le publier en plus petits"_s},
        {u"M20"_s, kError,
         u"selon l'adresse : « Serveur hors ligne », « Bienvenue sur Veyra ! » au lieu des "
         u"actualités, aucune mise à jour, « Mode hors ligne », une erreur de téléchargement"_s,
         u"publier ce fichier, ou corriger le serveur web"_s},
        {u"M21"_s, kError,
         u"comme M20 ; si la redirection tourne en rond, après une cinquantaine de requêtes"_s,
         u"ôter la redirection du serveur web"_s},
        {u"M22"_s, kWarning, u"rien, mais chaque lecture coûte une requête de plus"_s,
         u"servir le fichier à cette adresse même"_s},
        {u"M23"_s, kError,
         u"selon l'adresse : « Serveur hors ligne », « Aucune actualité pour le moment. », aucune "
         u"mise à jour, « Erreur: Format de version invalide »"_s,
         u"le serveur web doit exécuter ce fichier PHP, ou le remplacer par du JSON"_s},
        {u"M24"_s, kError,
         u"selon l'adresse : « Serveur hors ligne », « Aucune actualité pour le moment. », aucune "
         u"mise à jour, « Erreur: Format de version invalide »"_s,
         u"servir le fichier JSON, pas une page"_s},
        {u"M25"_s, kError, u"une page d'erreur est prise pour une archive ou pour des données"_s,
         u"répondre 404 à ce qui n'existe pas"_s},
        {u"M26"_s, kError,
         u"selon l'adresse : « Serveur hors ligne », « Aucune actualité pour le moment. », aucune "
         u"mise à jour, « Erreur: Format de version invalide »"_s,
         u"corriger ce fichier"_s},
        {u"M27"_s, kError, u"une progression fausse, ou une archive abîmée"_s,
         u"ne pas compresser les archives en route (gzip off)"_s},
        {u"M28"_s, kWarning, u"une barre sans pourcentage"_s,
         u"annoncer la taille (Content-Length)"_s},
        {u"M29"_s, kError, u"comme M20, ou une attente sans fin"_s,
         u"envoyer de nouveau ce fichier, entier, et revoir le serveur web"_s},
        {u"M30"_s, kWarning, u"des données d'hier"_s,
         u"répondre « Cache-Control: no-cache » pour les fichiers JSON"_s},
        {u"M31"_s, kWarning,
         u"rien ; mais « verifier » ne regarde cette archive qu'avec --complet"_s,
         u"accepter les requêtes partielles (Range)"_s},
        {u"M32"_s, kError, u"une réponse qui remplit la mémoire, jusqu'à la fin du launcher"_s,
         u"servir à cette adresse un fichier JSON entier, de quelques Mo au plus"_s},
        {u"M33"_s, kError, u"« Erreur de téléchargement », ou une barre qui n'avance plus"_s,
         u"revoir le serveur web et sa connexion, puis envoyer de nouveau l'archive, entière"_s},
        {u"M40"_s, kError, u"la nouvelle version n'est pas proposée comme il faut"_s,
         u"écrire la version en nombres séparés par des points"_s},
        {u"M41"_s, kError, u"« Erreur de mise à jour », à chaque essai"_s,
         u"écrire dans « download_url » l'adresse complète de l'archive"_s},
        {u"M42"_s, kError, u"la mise à jour est téléchargée, puis refusée"_s,
         u"publier l'archive signée et entière que fait « scripts/windows package »"_s},
        {u"M43"_s, kError, u"une mise à jour obligatoire peut être refusée"_s,
         u"écrire « required » sans guillemets : true ou false"_s},
        {u"M44"_s, kWarning, u"la mise à jour est proposée sans dire ce qui change"_s,
         u"écrire dans « changelog » un seul texte"_s},
        {u"M45"_s, kError, u"le launcher mis à jour ne lit plus ce site"_s,
         u"construire le launcher avec l'adresse de ce site (VEYRA_SERVER_URL)"_s},
    };
    return kMistakes;
}

const Mistake *find(const QString &code)
{
    const auto &all = catalogue();
    const auto found = std::find_if(
        all.begin(), all.end(), [&code](const Mistake &mistake) { return mistake.code == code; });
    Q_ASSERT(found != all.end());
    return &*found;
}

QString severity(const Mistake &mistake)
{
    return mistake.isError ? u"erreur"_s : u"avertissement"_s;
}

} // namespace

const QList<Mistake> &Findings::catalogue()
{
    return ::catalogue();
}

void Findings::add(const QString &code, const QString &place, const QString &detail,
                   const QString &players)
{
    const Mistake *mistake = find(code);
    m_findings.append({mistake, place, detail, players.isEmpty() ? mistake->players : players});
}

void Findings::addExamples(const QString &code, const QString &place, const QString &what,
                           const QStringList &examples, const QString &players)
{
    if (examples.isEmpty())
        return;
    const QString first = u"%1 : « %2 »"_s.arg(what, examples.first());
    const qsizetype others = examples.size() - 1;
    add(code, place, others == 0 ? first : u"%1 et %2 de plus"_s.arg(first).arg(others), players);
}

bool Findings::hasErrors() const
{
    return std::any_of(m_findings.begin(), m_findings.end(),
                       [](const Finding &finding) { return finding.mistake->isError; });
}

bool Findings::has(const QString &code, const QString &place) const
{
    return std::any_of(m_findings.begin(), m_findings.end(), [&](const Finding &finding) {
        return finding.mistake->code == code && finding.place == place;
    });
}

bool Findings::hasErrorAt(const QString &place) const
{
    return std::any_of(m_findings.begin(), m_findings.end(), [&place](const Finding &finding) {
        return finding.mistake->isError && finding.place == place;
    });
}

QString Findings::text() const
{
    QString text;
    for (const Finding &finding : m_findings) {
        const Mistake &mistake = *finding.mistake;
        text += u"%1  %2, %3\n     %4.\n     Joueurs : %5.\n     Remède : %6.\n"_s.arg(
            mistake.code, severity(mistake), Console::printable(finding.place),
            Console::printable(finding.detail), Console::printable(finding.players),
            mistake.remedy);
    }
    return text;
}

QJsonArray Findings::json() const
{
    QJsonArray array;
    for (const Finding &finding : m_findings) {
        const Mistake &mistake = *finding.mistake;
        array.append(QJsonObject{{"code"_L1, mistake.code},
                                 {"gravite"_L1, severity(mistake)},
                                 {"adresse"_L1, finding.place},
                                 {"constat"_L1, finding.detail},
                                 {"joueurs"_L1, finding.players},
                                 {"remede"_L1, mistake.remedy}});
    }
    return array;
}

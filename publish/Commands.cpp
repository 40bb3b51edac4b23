#include "publish/Commands.h"

#include "publish/ClientFolder.h"
#include "publish/ClientPublication.h"
#include "publish/CommandLine.h"
#include "publish/Console.h"
#include "publish/Disk.h"
#include "publish/French.h"
#include "publish/Generation.h"
#include "publish/LauncherArchive.h"
#include "publish/LauncherPublication.h"
#include "publish/LauncherSettings.h"
#include "publish/News.h"
#include "publish/Rehearsal.h"
#include "publish/Sending.h"
#include "publish/Site.h"
#include "publish/Status.h"
#include "publish/Verifier.h"
#include "publish/Workshop.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QLockFile>
#include <QRegularExpression>
#include <QTextStream>

#include <exception>
#include <memory>
#include <optional>

using namespace Qt::Literals::StringLiterals;
using Console::complain;
using Console::say;

namespace {

const auto kExclude = u"--exclure"_s;
const auto kDate = u"--date"_s;
const auto kNoDate = u"--sans-date"_s;
const auto kKey = u"--cle"_s;
const auto kTarget = u"--cible"_s;
const auto kNotes = u"--notes"_s;
const auto kRequired = u"--obligatoire"_s;
const auto kWhole = u"--complet"_s;
const auto kJson = u"--json"_s;

void sayPrepared(const QString &number)
{
    say(u"Publication %1 préparée ; « veyra-publier mettre-en-ligne » la met en ligne."_s.arg(
        number));
}

/// Where there is nothing that a web server could follow.
void sayWhatToServe(const Workshop &workshop)
{
    say(u"Le site est le contenu de %1 : c'est lui que le serveur web doit servir."_s.arg(
        QDir::toNativeSeparators(workshop.sitePath())));
}

Problem refused(const QString &text)
{
    return {Outcome::Refused, text + u" ; rien n'a été changé."_s};
}

int positiveNumber(const QString &text, int largest)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (!isNumber || number < 0 || number > largest)
        throw Problem{Outcome::Usage, u"« %1 » n'est pas un nombre qui convient."_s.arg(text)};
    return number;
}

/// What is not there was named wrongly; what cannot be read is the disk's fault.
QString existing(const QString &file)
{
    if (!QFileInfo::exists(file))
        throw refused(u"%1 n'existe pas, ou se trouve là où vous n'entrez pas"_s.arg(file));
    return file;
}

/// From the file that minisign makes: a comment, then the key.
QString publicKey(const QString &file)
{
    QString key = QString::fromLatin1(Disk::read(existing(file)).split('\n').value(1)).trimmed();
    static const QRegularExpression kForm(u"^RW[A-Za-z0-9+/]{54}$"_s);
    if (!kForm.match(key).hasMatch())
        throw refused(u"%1 n'est pas une clé publique de minisign"_s.arg(file));
    return key;
}

/// Asked for once more, it stays as it is, but for keys that it did not know.
Workshop workshopFor(const CommandLine &line, const QStringList &keys, const QString &target)
{
    const QString url = Workshop::checkedBaseUrl(line.operands.first());
    if (Workshop::exists(line.workshop)) {
        Workshop workshop(line.workshop);
        if (workshop.baseUrl() == url && (!line.has(kTarget) || workshop.target() == target)) {
            const std::unique_ptr<QLockFile> lock = workshop.lock();
            workshop.addKeys(keys);
            return workshop;
        }
    }
    return Workshop::create(line.workshop, url, keys, target);
}

Outcome makeWorkshop(const CommandLine &line)
{
    QStringList keys;
    for (const QString &file : line.values(kKey))
        keys.append(publicKey(file));
    const QString target =
        line.has(kTarget) ? line.values(kTarget).last() : LauncherArchive::targets().first();
    if (!LauncherArchive::targets().contains(target)) {
        throw Problem{Outcome::Usage, u"« %1 » n'est pas une cible : %2."_s.arg(
                                          target, LauncherArchive::targets().join(u" ou "_s))};
    }
    const Workshop workshop = workshopFor(line, keys, target);
    if (workshop.wasMended()) {
        complain(u"Attention : publication.json manquait ; il est écrit de nouveau, avec les "
                 u"versions %1. Ce qui est en ligne et ce qui est préparé n'ont pas changé. Les "
                 u"autres versions que des joueurs ont, et les clés, sont à redonner."_s.arg(
                     workshop.versions().join(u", "_s)));
    }
    Site::warnOfClosedFolders(workshop.path(QString()));
    if (Disk::kMakesLinks) {
        say(u"L'atelier est prêt. Pour nginx :\n"_s);
        say(Site::nginxBlock(workshop));
    } else {
        say(u"L'atelier est prêt."_s);
        sayWhatToServe(workshop);
    }
    return workshop.wasMended() ? Outcome::Warnings : Outcome::Good;
}

/// Each publication would hold all those before it. A folder of its own in the workshop is fine.
void checkIsNoWorkshop(const QString &client, const Workshop &workshop)
{
    const auto within = [](const QString &outer, const QString &inner) {
        return (inner + u'/').startsWith(outer + u'/');
    };
    const QString folder = QFileInfo(client).canonicalFilePath();
    if (folder.isEmpty())
        return;
    if (within(folder, QFileInfo(workshop.path(QString())).canonicalFilePath()) ||
        within(QFileInfo(workshop.generationPath(QString())).canonicalFilePath(), folder))
        throw refused(u"L'atelier et le client se recouvrent dans %1 : donner au client un dossier "
                      u"à lui"_s.arg(client));
}

Outcome publishClient(const CommandLine &line)
{
    const Workshop workshop(line.workshop);
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    checkIsNoWorkshop(line.operands.first(), workshop);
    const ClientFolder client = ClientFolder::scan(line.operands.first(), line.values(kExclude));
    for (const QString &warning : client.warnings)
        complain(u"Attention : "_s + warning);

    const ClientPublication publication = ClientPublication::make(workshop, client);
    using French::counted;
    say(u"%1, %2, %3."_s.arg(
        counted(publication.files, u"fichier"_s, u"fichiers"_s),
        counted(publication.changedFiles, u"nouveau ou changé"_s, u"nouveaux ou changés"_s),
        counted(publication.removedFiles, u"retiré"_s, u"retirés"_s)));
    if (client.excluded > 0) {
        say(u"Exclus : %1."_s.arg(
            counted(client.excluded, u"fichier ou dossier"_s, u"fichiers ou dossiers"_s)));
    }
    if (publication.number.isEmpty())
        say(u"Le client est le même que dans la dernière publication : rien à préparer."_s);
    else
        sayPrepared(publication.number);
    return client.warnings.isEmpty() ? Outcome::Good : Outcome::Warnings;
}

Outcome publishLauncher(const CommandLine &line)
{
    if (!line.has(kNotes))
        throw Problem{Outcome::Usage, u"« lanceur » demande --notes FICHIER."_s};
    const Workshop workshop(line.workshop);
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    const QByteArray notes = Disk::read(existing(line.values(kNotes).last()));
    if (!QUtf8StringView(notes).isValidUtf8())
        throw refused(u"%1 n'est pas en UTF-8"_s.arg(line.values(kNotes).last()));
    const LauncherPublication launcher{existing(line.operands.first()),
                                       QString::fromUtf8(notes).trimmed(), line.has(kRequired)};
    sayPrepared(launcher.make(workshop));
    return Outcome::Good;
}

News newsOf(const Workshop &workshop)
{
    return News::load(workshop.generationPath(workshop.draft()) + u'/' + Site::kNews);
}

void publishNews(const Workshop &workshop, const News &news)
{
    Generation generation(workshop, {Site::kNews});
    generation.write(Site::kNews, QJsonDocument(news.items()));
    sayPrepared(generation.commit());
}

Outcome addNews(const CommandLine &line)
{
    if (line.has(kDate) && line.has(kNoDate))
        throw Problem{Outcome::Usage, u"--date et --sans-date s'excluent."_s};
    const Workshop workshop(line.workshop);
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    QString date = QDate::currentDate().toString(u"dd/MM"_s);
    if (line.has(kDate))
        date = line.values(kDate).last();
    else if (line.has(kNoDate))
        date.clear();

    News news = newsOf(workshop);
    news.add(line.operands.at(0), line.operands.at(1), date);
    publishNews(workshop, news);
    return Outcome::Good;
}

Outcome listNews(const CommandLine &line)
{
    const QStringList lines = newsOf(Workshop(line.workshop)).lines();
    if (lines.isEmpty())
        say(u"Aucune actualité."_s);
    for (qsizetype i = 0; i < lines.size(); ++i)
        say(u"%1. %2"_s.arg(QString::number(i + 1), lines.at(i)));
    return Outcome::Good;
}

Outcome removeNews(const CommandLine &line)
{
    const int number = positiveNumber(line.operands.first(), 9999);
    const Workshop workshop(line.workshop);
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    News news = newsOf(workshop);
    if (!news.remove(number - 1))
        throw refused(u"Il n'y a pas d'actualité %1"_s.arg(number));
    publishNews(workshop, news);
    return Outcome::Good;
}

Outcome save(const ServerStatus &status, const CommandLine &line)
{
    status.save(Workshop::statusPathIn(line.workshop));
    if (Workshop::exists(line.workshop))
        Workshop(line.workshop).spreadStatus();
    say(status.online
            ? u"En ligne, %1."_s.arg(French::counted(status.players, u"joueur"_s, u"joueurs"_s))
            : u"Hors ligne."_s);
    return Outcome::Good;
}

Outcome setOnline(const CommandLine &line)
{
    constexpr int kMostPlayers = 1'000'000;
    const int players = positiveNumber(line.operands.first(), kMostPlayers);
    return save(ServerStatus{true, players}, line);
}

Outcome setOffline(const CommandLine &line)
{
    return save(ServerStatus(), line);
}

/// The number of players is somebody else's to tell.
Outcome probeServer(const CommandLine &line)
{
    const QString &place = line.operands.first();
    const int port = place.section(u':', -1).toUShort();
    QString host = place.section(u':', 0, -2);
    if (host.startsWith(u'[') && host.endsWith(u']'))
        host = host.sliced(1).chopped(1);
    if (host.isEmpty() || port == 0)
        throw Problem{Outcome::Usage, u"« %1 » n'est pas de la forme HÔTE:PORT."_s.arg(place)};

    const QString path = Workshop::statusPathIn(line.workshop);
    const bool isOnline = acceptsConnections(host, static_cast<quint16>(port));
    // Read afterwards: looking takes seconds, in which somebody may have told another number.
    const ServerStatus known = ServerStatus::load(path);
    return save({isOnline, known.players}, line);
}

Outcome putOnline(const CommandLine &line)
{
    Workshop workshop(line.workshop);
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    if (workshop.putOnline())
        say(u"Publication %1 en ligne."_s.arg(workshop.served()));
    else
        say(u"La publication %1 est déjà en ligne."_s.arg(workshop.served()));
    if (!Disk::kMakesLinks)
        sayWhatToServe(workshop);
    const QStringList problems = workshop.removeOld();
    for (const QString &problem : problems)
        complain(u"Attention, une ancienne publication reste : "_s + problem);
    return problems.isEmpty() ? Outcome::Good : Outcome::Warnings;
}

Outcome takeBack(const CommandLine &line)
{
    const Workshop workshop(line.workshop);
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    const Workshop::WayBack back = workshop.takeBack();
    say(u"La publication %1 est de nouveau en ligne."_s.arg(back.number));
    if (!back.abandoned.isEmpty()) {
        say(u"La publication %1, préparée et pas encore en ligne, est abandonnée : ses changements "
            u"sont à refaire."_s.arg(back.abandoned));
    }
    if (!Disk::kMakesLinks)
        sayWhatToServe(workshop);
    return Outcome::Good;
}

/// The workshop tells what is not given. Its keys are those of what its own site offers.
Verifier verifierFor(const CommandLine &line)
{
    const QString given = line.operands.value(0);
    if (!given.isEmpty() && !Workshop::exists(line.workshop)) {
        const QString url = Workshop::checkedBaseUrl(given);
        return {url,
                {{LauncherSettings::ownVersion()}, LauncherArchive::targets().first(), {}, url}};
    }
    const Workshop workshop(line.workshop);
    const Audience audience{workshop.versions(), workshop.target(), workshop.keys(),
                            workshop.baseUrl()};
    return {given.isEmpty() ? workshop.baseUrl() : Workshop::checkedBaseUrl(given), audience};
}

/// `obstacle` is empty where all was looked at.
void sayAsJson(const Verifier &verifier, const QString &obstacle)
{
    QJsonObject report{{"constats"_L1, verifier.findings().json()},
                       {"launchers"_L1, QJsonArray::fromStringList(verifier.sights())}};
    if (!obstacle.isEmpty())
        report.insert("obstacle"_L1, obstacle);
    QTextStream(stdout) << QJsonDocument(report).toJson();
}

void sayInWords(const Verifier &verifier)
{
    const QStringList &sights = verifier.sights();
    for (const QString &sight : sights)
        say(Console::printable(sight));
    const Findings &findings = verifier.findings();
    say(findings.isEmpty() ? u"Aucune erreur."_s : findings.text());
}

Outcome verify(const CommandLine &line)
{
    Verifier verifier = verifierFor(line);
    std::optional<Problem> obstacle;
    try {
        verifier.run(line.has(kWhole));
    } catch (const Problem &problem) {
        if (problem.outcome == Outcome::Interrupted)
            throw;
        obstacle = problem;
    }
    const Findings &findings = verifier.findings();
    // What was found before something got in the way is told all the same.
    if (line.has(kJson))
        sayAsJson(verifier, obstacle ? obstacle->text : QString());
    else if (!obstacle || !findings.isEmpty())
        sayInWords(verifier);
    if (obstacle)
        throw Problem(*obstacle);
    if (findings.hasErrors())
        return Outcome::Errors;
    return findings.isEmpty() ? Outcome::Good : Outcome::Warnings;
}

} // namespace

const QList<CommandForm> &commandForms()
{
    static const QList<CommandForm> kForms{
        {u"init"_s, 1, 0, {kKey, kTarget}, {}, makeWorkshop},
        {u"client"_s, 1, 0, {kExclude}, {}, publishClient},
        {u"lanceur"_s, 1, 0, {kNotes}, {kRequired}, publishLauncher},
        {u"nouvelles ajouter"_s, 2, 0, {kDate}, {kNoDate}, addNews},
        {u"nouvelles lister"_s, 0, 0, {}, {}, listNews},
        {u"nouvelles retirer"_s, 1, 0, {}, {}, removeNews},
        {u"etat en-ligne"_s, 1, 0, {}, {}, setOnline},
        {u"etat hors-ligne"_s, 0, 0, {}, {}, setOffline},
        {u"etat sonder"_s, 1, 0, {}, {}, probeServer},
        {u"mettre-en-ligne"_s, 0, 0, {}, {}, putOnline},
        {u"annuler"_s, 0, 0, {}, {}, takeBack},
        {u"envoyer"_s, 0, 1, {}, {}, Sending::run},
        {u"verifier"_s, 0, 1, {}, {kWhole, kJson}, verify},
        {u"essayer"_s, 0, 0, Rehearsal::valueOptions(), Rehearsal::flags(), Rehearsal::run},
    };
    return kForms;
}

QString helpText()
{
    return uR"(Usage : veyra-publier [--atelier DOSSIER] COMMANDE

Prépare le site que lit le launcher, puis le met en ligne d'un coup.

Préparer :
  init ADRESSE            fait de l'atelier (le dossier courant, ou --atelier) la source
                          du site ADRESSE, par exemple https://play.example.org/, et
                          affiche le bloc de configuration pour nginx ; répété, affiche ce
                          bloc et ajoute les clés données ; si publication.json manque, l'écrit
                          de nouveau sans toucher au site
      --cle FICHIER       clé publique qui signe les launchers ; peut se répéter
      --cible CIBLE       système des joueurs : windows-x64, à défaut, ou linux-x64
  client DOSSIER          prépare le client du jeu qui se trouve dans DOSSIER
      --exclure MOTIF     sans les fichiers et dossiers de ce nom (* et ? permis, les
                          majuscules comptent), ou, avec un « / », sans ce chemin ;
                          peut se répéter
  lanceur ARCHIVE --notes FICHIER
                          prépare la nouvelle version du launcher que « scripts/windows
                          package » a faite et signée ; FICHIER dit ce qui change ; la même
                          archive, redonnée, change les notes
      --obligatoire       les joueurs ne peuvent pas la refuser
  nouvelles ajouter TITRE TEXTE
                          ajoute une actualité en tête, datée d'aujourd'hui ; titre et
                          texte sont du HTML
      --date DATE         avec cette date, telle quelle
      --sans-date         sans date
  nouvelles lister        affiche les actualités avec leurs numéros
  nouvelles retirer N     retire l'actualité numéro N

Mettre en ligne :
  mettre-en-ligne         sert la dernière publication préparée
  annuler                 sert de nouveau celle d'avant, et repart d'elle ; ce qui était
                          préparé et pas encore en ligne est abandonné
  envoyer [DESTINATION]   envoie le site en ligne vers un dossier, ou vers une autre
                          machine (sftp://NOM@HÔTE/DOSSIER), et l'y met en ligne ; la
                          destination est retenue pour la prochaine fois

Vérifier ce que les joueurs reçoivent :
  verifier [ADRESSE]      lit le site comme le launcher et dit, pour chaque erreur, ce que
                          les joueurs en voient et comment la corriger
      --complet           télécharge, décompresse et vérifie aussi client et launcher
      --json              répond en JSON
  essayer                 sert le site sur cette machine seule, comme le ferait nginx,
                          jusqu'à Ctrl+C ; l'adresse est affichée
      --brouillon         sert ce qui est préparé et pas encore en ligne
      --port N            sur ce port plutôt que sur un port libre
      --debit N[k|M]      N octets par seconde en tout (k : mille, M : un million)
      --panne PANNE       coupure : chaque réponse s'arrête au milieu ; lent : chacune se
                          fait attendre une seconde ; 404 : rien n'est trouvé

État du serveur de jeu, tout de suite en ligne :
  etat en-ligne N         en ligne, avec N joueurs
  etat hors-ligne         hors ligne
  etat sonder HÔTE:PORT   en ligne si une connexion y est acceptée ; le nombre de
                          joueurs reste celui qui a été donné

Options générales : --atelier DOSSIER, --help, --version.

Codes de fin : 0 bien · 1 commande mal tapée · 2 refusé, rien n'a été changé ·
3 le site a des erreurs · 4 des avertissements seulement · 5 le site ne répond pas ·
6 disque ou droits · 7 envoi interrompu, l'ancien site reste servi · 130 interrompu.)"_s;
}

Outcome runPublisher(const QStringList &arguments)
{
    const QStringList options = arguments.mid(0, arguments.indexOf("--"_L1));
    if (options.contains("--help"_L1)) {
        say(helpText());
        return Outcome::Good;
    }
    if (options.contains("--version"_L1)) {
        say(u"veyra-publier "_s + QCoreApplication::applicationVersion());
        return Outcome::Good;
    }
    try {
        const CommandLine line = CommandLine::parse(arguments);
        return line.form->run(line);
    } catch (const Problem &problem) {
        complain(problem.text);
        return problem.outcome;
    } catch (const std::exception &exception) {
        complain(u"Le système refuse ce qu'il faut pour continuer (%1)."_s.arg(
            QString::fromLocal8Bit(exception.what())));
        return Outcome::Disk;
    }
}

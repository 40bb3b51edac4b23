#include "updater/LauncherUpdate.h"

#include "updater/FileName.h"
#include "updater/Platform.h"
#include "updater/ProgressView.h"
#include "updater/Retry.h"
#include "updater/RunLog.h"
#include "updater/Swap.h"
#include "updater/UpdateArchive.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace {

constexpr std::string_view kSilent = "--silent";
constexpr std::chrono::milliseconds kPollInterval{100};
constexpr const char *kUsage =
    "Usage : LauncherUpdater.exe [--silent] ARCHIVE DOSSIER PROGRAMME\n"
    "Installe la mise à jour ARCHIVE du launcher dans DOSSIER, puis démarre PROGRAMME.";

struct CommandLine
{
    bool silent = false;
    std::vector<std::string> operands;
};

CommandLine parse(const std::vector<std::string> &arguments)
{
    CommandLine result;
    result.silent = !arguments.empty() && arguments.front() == kSilent;
    result.operands.assign(arguments.begin() + (result.silent ? 1 : 0), arguments.end());
    return result;
}

/// For the person: what happened, and what to do about it.
std::string explained(const Failure &failure)
{
    switch (failure.code) {
    case ExitCode::StillRunning:
        return "La mise à jour ne peut pas commencer : " + failure.text;
    case ExitCode::Refused:
        return "Mise à jour refusée : " + failure.text + ".\nLe launcher n'a pas été modifié.";
    case ExitCode::NotPrepared:
        return "Mise à jour impossible : " + failure.text + ".\nLe launcher n'a pas été modifié.";
    case ExitCode::RolledBack:
        return "La mise à jour a échoué : " + failure.text +
               ".\nL'ancienne version a été remise en place.";
    case ExitCode::RollBackFailed:
        return "La mise à jour a été interrompue et l'ancienne version n'a pas pu être remise en "
               "place : " +
               failure.text +
               ".\nRedémarrez l'ordinateur, puis démarrez le launcher. Si cela ne suffit pas, "
               "réinstallez-le : le jeu et la configuration sont conservés.";
    case ExitCode::NotRestarted:
        return "Le launcher est en place, mais il n'a pas pu être démarré : " + failure.text +
               ".\nDémarrez-le vous-même.";
    case ExitCode::Done:
    case ExitCode::Usage:
        break;
    }
    return failure.text;
}

/// The folder whose files the run moves; empty when the arguments name none.
std::string folderOf(const CommandLine &line)
{
    switch (line.operands.size()) {
    case 0: {
        const std::string self = Platform::ownExecutable();
        return self.substr(0, self.rfind('/'));
    }
    case 1:
        return line.operands[0];
    case 3:
        return line.operands[1];
    default:
        return {};
    }
}

/// Of a path that Platform::absolutePath() found: neither nothing nor the root of Linux. A drive of
/// Windows ("D:") may be a launcher's folder.
bool isFolderOfLauncher(const std::string &folder)
{
    return !folder.empty() && folder.back() != '/';
}

/// The same run, from wherever the program lies.
std::vector<std::string> asCopy(const CommandLine &line, const std::string &folder)
{
    std::vector<std::string> arguments;
    if (line.silent)
        arguments.emplace_back(kSilent);
    const auto &operands = line.operands;
    arguments.insert(arguments.end(), operands.begin(), operands.end());
    if (operands.empty())
        arguments.push_back(folder);
    return arguments;
}

/// One run, with everything that its steps share.
class Run
{
public:
    Run(const UpdaterSettings &settings, bool silent)
        : m_settings(settings)
        , m_view(createProgressView(silent))
    {
    }

    ExitCode update(const std::string &archive, const std::string &folder,
                    const std::string &program);
    ExitCode mend(const std::string &folder);
    ExitCode explainUsage();

private:
    ExitCode attempt(const std::function<void()> &steps);
    void takePaths(const std::string &archive, const std::string &folder,
                   const std::string &program);
    void waitUntil(const std::function<std::string()> &obstacle) const;
    bool waitForLock();
    void waitForLauncher();
    Swap::Mended mendWhatIsPending(Swap &swap);
    void install(Swap &swap);
    UpdateTerms terms(const std::optional<UpdateList> &installed) const;
    std::optional<UpdateList> installedList();
    void startLauncher();

    void showFailure(const Failure &failure);
    void step(const std::string &text);

    const UpdaterSettings &m_settings;
    std::unique_ptr<ProgressView> m_view;
    RunLog m_log;
    Platform::FolderLock m_lock;

    std::string m_archive;
    std::string m_folder;
    std::string m_program;
};

ExitCode Run::update(const std::string &archive, const std::string &folder,
                     const std::string &program)
{
    return attempt([&] {
        takePaths(archive, folder, program);
        Platform::leaveWorkingDirectory();
        waitForLock();
        m_log.begin();
        waitForLauncher();
        Swap swap(m_folder, m_settings.retryFor);
        mendWhatIsPending(swap);
        install(swap);
    });
}

ExitCode Run::mend(const std::string &folder)
{
    return attempt([&] {
        m_folder = Platform::absolutePath(folder);
        Platform::Entry entry{};
        if (!isFolderOfLauncher(m_folder) || Platform::findEntry(m_folder, entry) ||
            entry != Platform::Entry::Folder)
            throw Failure(ExitCode::Usage, kUsage);
        Platform::leaveWorkingDirectory();
        const bool hasWaited = waitForLock();
        if (!Swap::isPending(m_folder)) {
            // Another run has mended it meanwhile, and started the launcher.
            if (hasWaited)
                return;
            throw Failure(ExitCode::Usage, kUsage);
        }
        m_log.begin();
        Swap swap(m_folder, m_settings.retryFor);
        if (mendWhatIsPending(swap) == Swap::Mended::Obsolete)
            throw Failure(ExitCode::Usage, kUsage);
        m_program = swap.mendedLauncher();
    });
}

ExitCode Run::explainUsage()
{
    return attempt([] { throw Failure(ExitCode::Usage, kUsage); });
}

/// Whatever went wrong, the launcher runs afterwards, unless it does already or cannot.
ExitCode Run::attempt(const std::function<void()> &steps)
{
    const auto canStart = [this](ExitCode code) {
        return code != ExitCode::Usage && code != ExitCode::StillRunning &&
               code != ExitCode::RollBackFailed && !m_program.empty();
    };
    ExitCode code = ExitCode::Done;
    try {
        steps();
    } catch (const Failure &failure) {
        code = failure.code;
        // Whoever reads that the launcher must be installed again does so now, and the setup
        // program refuses while an update is going on. A launcher that is still to be started must
        // not start in the middle of that.
        if (!canStart(code))
            m_lock.release();
        showFailure(failure);
    }
    if (canStart(code)) {
        try {
            startLauncher();
        } catch (const Failure &failure) {
            m_lock.release();
            showFailure(failure);
            if (code == ExitCode::Done)
                code = failure.code;
        }
    }
    m_log.write("Code de sortie " + std::to_string(int(code)));
    return code;
}

void Run::takePaths(const std::string &archive, const std::string &folder,
                    const std::string &program)
{
    m_folder = Platform::absolutePath(folder);
    if (!isFolderOfLauncher(m_folder))
        throw Failure(ExitCode::Usage, "Dossier introuvable : " + folder + "\n" + kUsage);
    if (program.empty() || program.find_first_of("/\\:") != std::string::npos)
        throw Failure(ExitCode::Usage, "Nom de programme attendu : " + program + "\n" + kUsage);
    const std::string path = m_folder + "/" + program;
    Platform::Entry entry{};
    if (const Platform::Error error =
            retried(m_settings.retryFor, [&] { return Platform::findEntry(path, entry); })) {
        m_program = program;
        throw Failure(ExitCode::NotPrepared, "impossible d'examiner " + path + " : " + error.text);
    }
    // An interrupted run may have left a moment without it, on some volumes.
    if (entry != Platform::Entry::File && !Swap::isPending(m_folder))
        throw Failure(ExitCode::Usage, "Programme introuvable : " + path + "\n" + kUsage);

    const std::string found = Platform::absolutePath(archive);
    m_archive = found.empty() ? archive : found;
    m_program = program;
    m_log.write("Mise à jour de " + m_folder + " avec " + m_archive);
}

/// Until there is no obstacle any more. The last one stands in the Failure.
void Run::waitUntil(const std::function<std::string()> &obstacle) const
{
    const auto deadline = std::chrono::steady_clock::now() + m_settings.waitFor;
    for (;;) {
        const std::string found = obstacle();
        if (found.empty())
            return;
        if (std::chrono::steady_clock::now() >= deadline)
            throw Failure(ExitCode::StillRunning, found);
        std::this_thread::sleep_for(kPollInterval);
    }
}

/// Returns whether another run had it.
bool Run::waitForLock()
{
    bool hasWaited = false;
    waitUntil([this, &hasWaited]() -> std::string {
        if (m_lock.tryLock(m_folder))
            return {};
        if (!std::exchange(hasWaited, true))
            step("Attente de la fin d'une autre mise à jour...");
        return "une autre mise à jour du launcher est en cours.";
    });
    return hasWaited;
}

void Run::waitForLauncher()
{
    bool isTold = false;
    waitUntil([this, &isTold]() -> std::string {
        const auto processes = Platform::processesRunning(m_folder + "/" + m_program);
        if (processes.empty())
            return {};
        if (!std::exchange(isTold, true))
            step("Attente de la fermeture du launcher...");
        std::string names;
        for (const std::string &process : processes)
            names += (names.empty() ? "" : " ; ") + process;
        return "le launcher est encore ouvert (" + names + "). Fermez-le, puis recommencez.";
    });
}

Swap::Mended Run::mendWhatIsPending(Swap &swap)
{
    const Swap::Mended mended = swap.mend();
    switch (mended) {
    case Swap::Mended::Nothing:
        break;
    case Swap::Mended::Undone:
        step("Une mise à jour interrompue a été annulée.");
        break;
    case Swap::Mended::Finished:
        step("Une mise à jour interrompue a été terminée.");
        break;
    case Swap::Mended::Obsolete:
        step("Une mise à jour interrompue est abandonnée : un autre launcher a été installé.");
        break;
    }
    return mended;
}

void Run::install(Swap &swap)
{
    step("Vérification de la mise à jour...");
    const std::optional<UpdateList> installed = installedList();
    const UpdateArchive archive(m_archive, terms(installed), m_settings.retryFor);

    step("Préparation de la version " + archive.list().version + "...");
    int shown = -1;
    swap.prepare(archive, installed ? &*installed : nullptr, m_program, Platform::ownExecutable(),
                 [this, &shown](int percent) {
                     if (percent != std::exchange(shown, percent))
                         m_view->showPercent(percent);
                 });
    try {
        // The person may have opened it again.
        waitForLauncher();
    } catch (const Failure &) {
        swap.discard();
        throw;
    }

    step("Remplacement des fichiers...");
    swap.perform();
    step("La version " + archive.list().version + " est installée.");
}

UpdateTerms Run::terms(const std::optional<UpdateList> &installed) const
{
    UpdateTerms result;
    for (const std::string &key : m_settings.keys) {
        if (!key.empty())
            result.keys.push_back(UpdateKey::parse(key));
    }
    result.target = m_settings.target;
    result.versions.push_back(m_settings.version);
    if (installed)
        result.versions.push_back(installed->version);
    return result;
}

/// A launcher without its list, or with a damaged one, can be updated all the same: this program's
/// own version still keeps older ones out, and what only the old version had stays.
std::optional<UpdateList> Run::installedList()
{
    const std::string path = m_folder + "/" + std::string(FileName::kList);
    std::string text;
    const Platform::Error error = retried(m_settings.retryFor, [&] {
        return Platform::readFile(path, UpdateList::kLongestText, text);
    });
    const bool isTooLong = error && text.size() > UpdateList::kLongestText;
    if (error.kind == Platform::Error::Kind::Missing || isTooLong) {
        m_log.write("Liste du launcher installé ignorée : " + error.text);
        return std::nullopt;
    }
    if (error) {
        throw Failure(ExitCode::NotPrepared, "impossible de lire " + path + " : " + error.text);
    }
    try {
        return UpdateList::parse(text);
    } catch (const Failure &failure) {
        m_log.write("Liste du launcher installé ignorée : " + failure.text);
        return std::nullopt;
    }
}

void Run::startLauncher()
{
    const std::string path = m_folder + "/" + m_program;
    if (const Platform::Error error =
            retried(m_settings.retryFor, [&] { return Platform::start(path, m_folder); }))
        throw Failure(ExitCode::NotRestarted, path + " : " + ::explained(error, path));
    m_log.write("Launcher démarré : " + path);
}

void Run::showFailure(const Failure &failure)
{
    const std::string text = explained(failure);
    m_log.write(text);
    m_view->showFailure(text);
}

void Run::step(const std::string &text)
{
    m_log.write(text);
    m_view->showStep(text);
}

} // namespace

ExitCode runUpdater(const std::vector<std::string> &arguments, const UpdaterSettings &settings)
{
    const CommandLine line = parse(arguments);
    const std::string folder = folderOf(line);
    if (!folder.empty() && Platform::continueAsCopy(folder, asCopy(line, folder)))
        return ExitCode::Done;

    Run run(settings, line.silent);
    if (line.operands.size() == 3)
        return run.update(line.operands[0], line.operands[1], line.operands[2]);
    if (!folder.empty())
        return run.mend(folder);
    return run.explainUsage();
}

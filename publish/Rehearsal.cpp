#include "publish/Rehearsal.h"

#include "publish/CommandLine.h"
#include "publish/Console.h"
#include "publish/RehearsalServer.h"
#include "publish/Waiting.h"
#include "publish/Workshop.h"

#include <QHash>
#include <QRegularExpression>

#include <chrono>
#include <optional>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const auto kPort = u"--port"_s;
const auto kRate = u"--debit"_s;
const auto kFault = u"--panne"_s;
const auto kDraft = u"--brouillon"_s;

constexpr auto kOneRound = 24h; ///< of waiting for Ctrl+C

Problem wrong(const QString &text)
{
    return {Outcome::Usage, text};
}

quint16 portOf(const CommandLine &line)
{
    if (!line.has(kPort))
        return 0;
    bool isNumber = false;
    const QString text = line.values(kPort).last();
    const ushort port = text.toUShort(&isNumber);
    if (!isNumber)
        throw wrong(u"« %1 » n'est pas un port."_s.arg(text));
    return port;
}

std::optional<qint64> rateOf(const CommandLine &line)
{
    if (!line.has(kRate))
        return {};
    static const QRegularExpression kForm(u"^([1-9][0-9]{0,8})([kM]?)$"_s);
    static const QHash<QString, qint64> kUnits{{QString(), 1}, {u"k"_s, 1000}, {u"M"_s, 1'000'000}};
    constexpr qint64 kLowest = 1000; // below it nothing but an icon would come through
    const QString text = line.values(kRate).last();
    const QRegularExpressionMatch match = kForm.match(text);
    const qint64 rate = match.captured(1).toLongLong() * kUnits.value(match.captured(2));
    if (rate < kLowest) {
        throw wrong(u"« %1 » n'est pas un débit qui convient : un nombre d'octets par seconde, "
                    u"suivi au besoin de k ou de M, et au moins 1k."_s.arg(text));
    }
    return rate;
}

RehearsalServer::Fault faultOf(const CommandLine &line)
{
    using Fault = RehearsalServer::Fault;
    if (!line.has(kFault))
        return Fault::None;
    static const QHash<QString, Fault> kFaults{
        {u"coupure"_s, Fault::CutOff}, {u"lent"_s, Fault::Slow}, {u"404"_s, Fault::NotFound}};
    const QString text = line.values(kFault).last();
    if (!kFaults.contains(text))
        throw wrong(u"« %1 » n'est pas une panne : coupure, lent ou 404."_s.arg(text));
    return kFaults.value(text);
}

} // namespace

QStringList Rehearsal::valueOptions()
{
    return {kPort, kRate, kFault};
}

QStringList Rehearsal::flags()
{
    return {kDraft};
}

Outcome Rehearsal::run(const CommandLine &line)
{
    const quint16 port = portOf(line);
    const std::optional<qint64> rate = rateOf(line);
    const RehearsalServer::Fault fault = faultOf(line);
    const Workshop workshop(line.workshop);
    const bool isDraft = line.has(kDraft);
    // The link is the root, so that what it leads to later is shown; now it has to lead somewhere.
    const QString root = isDraft ? workshop.draftPath() : workshop.sitePath();
    static_cast<void>(isDraft ? workshop.draft() : workshop.served());

    RehearsalServer server({root, workshop.statusPath()}, fault, rate);
    server.start(port);
    Console::say(u"http://127.0.0.1:%1/ sert le site, jusqu'à Ctrl+C."_s.arg(server.serverPort()));
    for (;;)
        Waiting().run(kOneRound);
}

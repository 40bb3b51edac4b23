#include "publish/CommandLine.h"

#include "publish/Commands.h"
#include "publish/Outcome.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kWorkshop = u"--atelier"_s;
constexpr auto kOnlyOperands = "--"_L1;

Problem wrong(const QString &text)
{
    return {Outcome::Usage, text + u" ; « veyra-publier --help » dit ce qui se tape."_s};
}

/// Whether some command takes a value behind it: the command itself may come later.
bool takesValue(const QString &option)
{
    for (const CommandForm &form : commandForms()) {
        if (form.valueOptions.contains(option))
            return true;
    }
    return option == kWorkshop;
}

/// Cuts the command's words off the front of the operands.
const CommandForm &takeCommand(QStringList &operands)
{
    if (operands.isEmpty())
        throw wrong(u"Une commande manque"_s);
    for (const CommandForm &form : commandForms()) {
        const QStringList name = form.name.split(u' ');
        if (operands.mid(0, name.size()) == name) {
            operands.remove(0, name.size());
            return form;
        }
    }
    QStringList continuations;
    for (const CommandForm &form : commandForms()) {
        if (form.name.startsWith(operands.first() + u' '))
            continuations.append(form.name.section(u' ', 1));
    }
    if (!continuations.isEmpty()) {
        throw wrong(
            u"« %1 » se continue par %2"_s.arg(operands.first(), continuations.join(u", "_s)));
    }
    throw wrong(u"Commande inconnue : « %1 »"_s.arg(operands.first()));
}

} // namespace

CommandLine CommandLine::parse(const QStringList &arguments)
{
    CommandLine line;
    bool onlyOperands = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (onlyOperands || !argument.startsWith(kOnlyOperands)) {
            line.operands.append(argument);
        } else if (argument == kOnlyOperands) {
            onlyOperands = true;
        } else if (takesValue(argument)) {
            if (arguments.value(++i).isEmpty())
                throw wrong(u"%1 demande une valeur"_s.arg(argument));
            line.options[argument].append(arguments.at(i));
        } else {
            line.options[argument].append(QString());
        }
    }
    line.form = &takeCommand(line.operands);
    line.check();
    if (line.has(kWorkshop))
        line.workshop = line.values(kWorkshop).last();
    return line;
}

void CommandLine::check() const
{
    for (auto option = options.keyBegin(); option != options.keyEnd(); ++option) {
        if (*option != kWorkshop && !form->valueOptions.contains(*option) &&
            !form->flags.contains(*option))
            throw wrong(u"« %1 » ne connaît pas %2"_s.arg(form->name, *option));
    }
    const qsizetype most = form->operands + form->optionalOperands;
    if (operands.size() < form->operands)
        throw wrong(u"« %1 » demande plus d'arguments"_s.arg(form->name));
    if (operands.size() > most)
        throw wrong(u"« %1 » : argument en trop, « %2 »"_s.arg(form->name, operands.at(most)));
}

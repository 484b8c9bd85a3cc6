// How the launcher reads its command line, and likely mistakes in it.

#include "mpirun-info/sections.h"

#include "zorv-debugger/zorvdebuggeroptions.h"

#include <QRegularExpression>

namespace {

// The name of each option, and its short names.
constexpr const char* optionNames[][2] = {
#define BACKEND_OPTION(name, simpleNames, ...) {name, simpleNames},
#define DEBUGGER_OPTION(name, simpleNames, ...) {name, simpleNames},
#include "backend/options.def"
};

QStringList spellings(bool simple)
{
    QStringList names;
    for (const auto& [name, simpleNames] : optionNames) {
        names += QString::fromLatin1(name);
        if (simple) {
            names += QString::fromLatin1(simpleNames).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        }
    }
    return names;
}

// The value may be a secret.
QString withoutValue(const QString& word)
{
    const qsizetype equals = word.indexOf(QLatin1Char('='));
    return equals == -1 ? word : word.left(equals + 1) + QStringLiteral("...");
}

// Reports the word that ended the options if it resembles one.
void findSlip(Report* report, const QString& word, bool simple)
{
    const QStringList known = spellings(simple);
    // Text processors turn two dashes into one long dash.
    static const QRegularExpression longDash(QStringLiteral("^[\\x{2013}\\x{2014}]"));
    const QString plain = QString(word).replace(longDash, QStringLiteral("--"));
    const QString name = plain.section(QLatin1Char('='), 0, 0);
    const QString nearest = plain.startsWith(QLatin1Char('-')) && name.size() > 4
                                ? nearestSpelling(name, known)
                                : QString();
    if (!nearest.isNull() && plain.contains(QLatin1Char('='))) {
        report->find(Finding::OptionJoined, "'%1' ended the options; write '%2 VALUE'",
                     withoutValue(word), nearest);
    } else if (!nearest.isNull()) {
        report->find(Finding::OptionMisspelt, "'%1' ended the options; did you mean '%2'?",
                     withoutValue(word), nearest);
    } else if (plain.contains(QLatin1String("-zorv"), Qt::CaseInsensitive)) {
        report->find(Finding::OptionMisspelt, "'%1' ended the options; there is no such option",
                     withoutValue(word));
    }
}

// Reports options of the launcher that follow the word that ended them.
void findLateOptions(Report* report, const QStringList& rest)
{
    QStringList late;
    for (const QString& word : rest.mid(1)) {
        if (word.startsWith(QLatin1String("--zorv"))) {
            late += withoutValue(word);
        }
    }
    late.removeDuplicates();
    if (!late.isEmpty()) {
        report->find(Finding::OptionAfterOthers, "'%1' ended the options; these follow it: %2",
                     withoutValue(rest.first()), late.join(QStringLiteral(", ")));
    }
}

} // namespace

void describeCommandLine(Report* report, const Request& request)
{
    ZORVDebuggerOptions options;
    QString messages;
    const bool accepted = parseCommandLine(request, &options, &messages);
    const QStringList rest =
        request.commandLine.mid(request.commandLine.size() - options.targetArguments().size());
    report->add("accepted", accepted);
    report->add("message", orNull(messages));
    report->add("simpleArguments", options.isSimpleArguments());
    // Only their number: a misspelt cookie option would show the cookie.
    report->add("arguments", request.commandLine.size() - 1);
    report->add("argumentsOfMpiLauncher", accepted ? QJsonValue(rest.size()) : QJsonValue());
    report->add("endedBy", rest.isEmpty() ? QJsonValue() : QJsonValue(withoutValue(rest.first())));
    if (!accepted) {
        report->find(Finding::CommandLineRejected, messages);
    } else if (!rest.isEmpty()) {
        findSlip(report, rest.first(), options.isSimpleArguments());
        findLateOptions(report, rest);
    }
}

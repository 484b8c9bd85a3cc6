// Compares the cost of launches with that of init programs and of a bare program.

#include "bench/report.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Request
{
    std::string portable;
    std::string ordinary;
    QString json;
    QString plot;
    long rounds = 0;
};

// Ends the program when the arguments are invalid.
Request parseRequest(const QStringList& arguments)
{
    const QCommandLineOption portable(QStringLiteral("portable"),
                                      QStringLiteral("The portable launcher."),
                                      QStringLiteral("launcher"));
    const QCommandLineOption ordinary(QStringLiteral("ordinary"),
                                      QStringLiteral("The ordinary launcher."),
                                      QStringLiteral("launcher"), QStringLiteral(ZORV_MPIRUN));
    const QCommandLineOption rounds(QStringLiteral("rounds"),
                                    QStringLiteral("How many launches of each contestant."),
                                    QStringLiteral("number"), QStringLiteral("1000"));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Write the figures to this file."),
                                  QStringLiteral("file"));
    const QCommandLineOption plot(QStringLiteral("plot"),
                                  QStringLiteral("Write a plot to this file; needs gnuplot."),
                                  QStringLiteral("file.svg"));
    QCommandLineParser parser;
    parser.addOptions({portable, ordinary, rounds, json, plot});
    parser.addHelpOption();
    parser.process(arguments);
    const long count = parser.value(rounds).toLong();
    if (count <= 0 || !parser.positionalArguments().isEmpty()) {
        fputs(qPrintable(parser.helpText()), stderr);
        exit(2);
    }
    return {parser.value(portable).toStdString(), parser.value(ordinary).toStdString(),
            parser.value(json), parser.value(plot), count};
}

Report measure(const std::vector<Contestant>& contestants, const Scratch& scratch, long rounds)
{
    const std::vector<LaunchSpread> launches = measureLaunches(contestants, scratch, rounds);
    const std::vector<Idle> idle = observeIdle(contestants, scratch);
    Report report;
    std::vector<Contestant> restarting;
    for (size_t i = 0; i < contestants.size(); ++i) {
        const Contestant& contestant = contestants[i];
        report.findings.push_back(
            {contestant.name, launches[i], countCalls(contestant, scratch, std::string()),
             countCalls(contestant, scratch, "C.UTF-8"), idle[i], std::nullopt});
        if (restarts(contestant)) {
            restarting.push_back(contestant);
        }
    }
    const std::vector<Spread> gaps = measureRestarts(restarting, scratch);
    size_t next = 0;
    for (size_t i = 0; i < contestants.size(); ++i) {
        if (restarts(contestants[i])) {
            report.findings[i].restart = gaps[next++];
        }
    }
    report.growth = measureGrowth(contestants, scratch);
    return report;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    const Request request = parseRequest(QCoreApplication::arguments());
    // Static, so that it is also removed when a measurement ends the program.
    static const Scratch scratch;
    const std::vector<Contestant> contestants =
        scratch.contestants(request.portable, request.ordinary);
    const Report report = measure(contestants, scratch, request.rounds);
    print(report);
    if (!request.json.isEmpty()) {
        writeJson(report, request.json);
    }
    if (!request.plot.isEmpty()) {
        writePlot(report, request.plot);
    }
    return 0;
}

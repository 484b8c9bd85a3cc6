// What a launch costs: the launchers beside public programs that also only start a
// program and wait for it, and beside a bare one, in one run.

#include "bench/report.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Request
{
    std::string portable;
    std::string ordinary = ZORV_MPIRUN;
    std::string json;
    std::string plot;
    long rounds = 1000;
};

Request parseRequest(int argc, char** argv)
{
    Request request;
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        const std::string value = i + 1 < argc ? argv[i + 1] : "";
        if (option == "--portable" && !value.empty()) {
            request.portable = value;
        } else if (option == "--ordinary" && !value.empty()) {
            request.ordinary = value;
        } else if (option == "--json" && !value.empty()) {
            request.json = value;
        } else if (option == "--plot" && !value.empty()) {
            request.plot = value;
        } else if (option == "--rounds" && atol(value.c_str()) > 0) {
            request.rounds = atol(value.c_str());
        } else {
            fprintf(stderr,
                    "usage: %s [--portable LAUNCHER] [--ordinary LAUNCHER] [--rounds N]\n"
                    "       [--json FILE] [--plot FILE.svg]\n",
                    argv[0]);
            exit(2);
        }
    }
    return request;
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
    const Request request = parseRequest(argc, argv);
    // Static: goes with the program when a measurement ends it, too.
    static const Scratch scratch;
    const std::vector<Contestant> contestants =
        scratch.contestants(request.portable, request.ordinary);
    const Report report = measure(contestants, scratch, request.rounds);
    print(report);
    if (!request.json.empty()) {
        writeJson(report, request.json);
    }
    if (!request.plot.empty()) {
        writePlot(report, request.plot);
    }
    return 0;
}

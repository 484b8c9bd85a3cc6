// Measures times: whole launches, restarts and growth.

#include "bench/measures.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>

namespace {

using Clock = std::chrono::steady_clock;

// A part may stop early after this many rounds.
constexpr size_t fewestRounds = 5;
constexpr std::chrono::seconds timeForLaunches(40);
constexpr std::chrono::seconds timeForOneGrowth(15);
constexpr size_t growthRounds = 50;
constexpr int restartRounds = 10;
constexpr int restartsInRound = 100;

Spread spreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const auto at = [&](double share) {
        const double place = share * static_cast<double>(values.size() - 1);
        const size_t below = static_cast<size_t>(place);
        const size_t above = std::min(below + 1, values.size() - 1);
        return values[below] + (place - std::floor(place)) * (values[above] - values[below]);
    };
    const double halfWidth = 0.98 / std::sqrt(static_cast<double>(values.size()));
    const Interval interval = {at(std::max(0.0, 0.5 - halfWidth)),
                               at(std::min(1.0, 0.5 + halfWidth))};
    return {at(0.25), at(0.5), at(0.75), values.size(), interval};
}

double medianOf(std::vector<double>& values)
{
    const auto middle = values.begin() + long(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The ratio of the medians of values that were measured in the same rounds.
Ratio ratioOf(const std::vector<double>& values, const std::vector<double>& others)
{
    constexpr size_t samples = 1000;
    std::mt19937 random(1);
    std::uniform_int_distribution<size_t> round(0, values.size() - 1);
    std::vector<double> ratios;
    std::vector<double> sample(values.size());
    std::vector<double> otherSample(values.size());
    for (size_t i = 0; i < samples; ++i) {
        for (size_t j = 0; j < values.size(); ++j) {
            const size_t picked = round(random);
            sample[j] = values[picked];
            otherSample[j] = others[picked];
        }
        ratios.push_back(medianOf(sample) / medianOf(otherSample));
    }
    std::sort(ratios.begin(), ratios.end());
    return {spreadOf(values).median / spreadOf(others).median,
            {ratios[samples / 40], ratios[samples - 1 - samples / 40]}};
}

// Takes each measure once in every round, in a random order, so that other load on the machine
// affects all measures alike.
std::vector<std::vector<double>> alternate(const std::vector<std::function<double()>>& measures,
                                           size_t rounds, Clock::duration time)
{
    std::vector<std::vector<double>> values(measures.size());
    std::vector<size_t> order(measures.size());
    std::iota(order.begin(), order.end(), 0);
    std::mt19937 random(1);
    const Clock::time_point end = Clock::now() + time;
    for (size_t round = 0; round < rounds; ++round) {
        if (round >= fewestRounds && Clock::now() > end) {
            break;
        }
        std::shuffle(order.begin(), order.end(), random);
        for (size_t i : order) {
            values[i].push_back(measures[i]());
        }
    }
    return values;
}

struct Record
{
    int64_t start;
    int64_t end;
};

std::vector<double> gapsIn(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::vector<double> gaps;
    Record previous;
    Record record;
    const auto read = [&](Record* to) {
        return bool(stream.read(reinterpret_cast<char*>(to), sizeof *to));
    };
    if (read(&previous)) {
        for (; read(&record); previous = record) {
            gaps.push_back(static_cast<double>(record.start - previous.end) / 1000);
        }
    }
    return gaps;
}

std::vector<double> restartOften(const Contestant& contestant, const Scratch& scratch)
{
    const std::string helpers = std::to_string(restartsInRound + 1);
    const std::string session = scratch.freshDirectory("session");
    Variables variables = scratch.variables();
    variables["BENCH_TIMES"] = session + "/times";
    Words command = contestant.command;
    if (contestant.isLauncher) {
        variables["BENCH_RESTARTS"] = helpers;
        variables["ZORV_SESSION_PATH"] = session;
        variables["ZORV_HOST"] = "localhost";
    } else {
        command[1] = helpers;
    }
    costOf(command, variables);
    const std::vector<double> gaps = gapsIn(variables["BENCH_TIMES"]);
    if (gaps.size() != restartsInRound) {
        fprintf(stderr, "%s: %zu restarts instead of %d\n", contestant.name.c_str(), gaps.size(),
                restartsInRound);
        exit(1);
    }
    return gaps;
}

// Adds `count` items to the command line, the environment or the session directory of a run.
using Give = std::function<void(long count, Words* command, Variables* variables)>;

void grow(const std::vector<Contestant>& contestants, const Scratch& scratch,
          const std::string& what, const std::vector<long>& counts, const Give& give,
          std::vector<Growth>* result)
{
    std::vector<std::function<double()>> measures;
    const size_t first = result->size();
    for (const Contestant& contestant : contestants) {
        result->push_back({what, contestant.name, counts, {}});
    }
    for (long count : counts) {
        measures.clear();
        for (const Contestant& contestant : contestants) {
            Words command = contestant.command;
            Variables variables = scratch.variables();
            give(count, &command, &variables);
            measures.push_back([command, variables] { return costOf(command, variables).elapsed; });
        }
        const std::vector<std::vector<double>> values =
            alternate(measures, growthRounds, timeForOneGrowth / int(counts.size()));
        for (size_t i = 0; i < values.size(); ++i) {
            (*result)[first + i].spreads.push_back(spreadOf(values[i]));
        }
    }
}

void giveArguments(long count, Words* command, Variables*)
{
    command->insert(command->end(), static_cast<size_t>(count), "argument");
}

void giveVariables(long count, Words*, Variables* variables)
{
    for (long i = 0; i < count; ++i) {
        (*variables)["VARIABLE" + std::to_string(i)] = "value";
    }
}

std::vector<Contestant> select(const std::vector<Contestant>& contestants, bool others)
{
    std::vector<Contestant> result;
    for (const Contestant& contestant : contestants) {
        if (contestant.isLauncher || (others && contestant.name == "tini")) {
            result.push_back(contestant);
        }
    }
    return result;
}

} // namespace

double Growth::perItem() const
{
    double meanCount = 0;
    double meanTime = 0;
    for (size_t i = 0; i < counts.size(); ++i) {
        meanCount += double(counts[i]) / double(counts.size());
        meanTime += spreads[i].median / double(counts.size());
    }
    double products = 0;
    double squares = 0;
    for (size_t i = 0; i < counts.size(); ++i) {
        products += (double(counts[i]) - meanCount) * (spreads[i].median - meanTime);
        squares += (double(counts[i]) - meanCount) * (double(counts[i]) - meanCount);
    }
    return products / squares;
}

std::optional<double> Growth::exponent() const
{
    const Spread& first = spreads.front();
    const Spread& previous = spreads[spreads.size() - 2];
    const Spread& last = spreads.back();
    if (last.lower <= first.upper || previous.median <= first.median) {
        return std::nullopt;
    }
    return std::log10((last.median - first.median) / (previous.median - first.median));
}

bool comparedWith(const std::string& contestant)
{
    return contestant == "bare" || contestant == "tini" || contestant == "tini-static";
}

std::vector<LaunchSpread> measureLaunches(const std::vector<Contestant>& contestants,
                                          const Scratch& scratch, long rounds)
{
    std::vector<std::function<double()>> measures;
    std::vector<std::vector<double>> processor(contestants.size());
    const Variables variables = scratch.variables();
    for (size_t i = 0; i < contestants.size(); ++i) {
        measures.push_back([&, i] {
            const Cost cost = costOf(contestants[i].command, variables);
            processor[i].push_back(cost.processor);
            return cost.elapsed;
        });
    }
    const std::vector<std::vector<double>> elapsed =
        alternate(measures, size_t(rounds), timeForLaunches);
    std::vector<LaunchSpread> result(contestants.size());
    for (size_t i = 0; i < contestants.size(); ++i) {
        result[i].elapsed.spread = spreadOf(elapsed[i]);
        result[i].processor.spread = spreadOf(processor[i]);
        for (size_t other = 0; other < contestants.size(); ++other) {
            const std::string& name = contestants[other].name;
            if (comparedWith(name)) {
                result[i].elapsed.ratios[name] = ratioOf(elapsed[i], elapsed[other]);
                result[i].processor.ratios[name] = ratioOf(processor[i], processor[other]);
            }
        }
    }
    return result;
}

bool restarts(const Contestant& contestant)
{
    return contestant.isLauncher || contestant.name == "bare";
}

std::vector<Spread> measureRestarts(const std::vector<Contestant>& contestants,
                                    const Scratch& scratch)
{
    std::vector<std::vector<double>> gaps(contestants.size());
    for (int round = 0; round < restartRounds; ++round) {
        for (size_t i = 0; i < contestants.size(); ++i) {
            const std::vector<double> more = restartOften(contestants[i], scratch);
            gaps[i].insert(gaps[i].end(), more.begin(), more.end());
        }
    }
    std::vector<Spread> spreads;
    for (const std::vector<double>& list : gaps) {
        spreads.push_back(spreadOf(list));
    }
    return spreads;
}

std::vector<Growth> measureGrowth(const std::vector<Contestant>& contestants,
                                  const Scratch& scratch)
{
    std::vector<Growth> result;
    const std::vector<Contestant> some = select(contestants, true);
    grow(some, scratch, "arguments", {1, 10, 100, 1000, 10000, 100000}, giveArguments, &result);
    grow(some, scratch, "variables", {10, 100, 1000, 10000}, giveVariables, &result);

    const std::string session = scratch.freshDirectory("session");
    long entries = 0;
    const auto giveEntries = [&](long count, Words*, Variables* variables) {
        for (; entries < count; ++entries) {
            std::ofstream(session + "/entry" + std::to_string(entries));
        }
        (*variables)["ZORV_SESSION_PATH"] = session;
        (*variables)["ZORV_HOST"] = "localhost";
    };
    grow(select(contestants, false), scratch, "entries", {10, 100, 1000, 10000, 100000},
         giveEntries, &result);
    return result;
}

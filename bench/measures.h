#pragma once

#include "bench/contestants.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// A confidence interval of 95 %.
struct Interval
{
    double low = 0;
    double high = 0;
};

/// Median and quartiles, in microseconds.
struct Spread
{
    double lower = 0;
    double median = 0;
    double upper = 0;
    size_t count = 0;
    /// The interval of the median, from its ranks in the binomial distribution.
    Interval interval;
};

/// A ratio of two medians that were measured in the same rounds.
struct Ratio
{
    double value = 0;
    /// From 1 000 bootstrap samples of the rounds.
    Interval interval;
};

/// Counts from the exec of a launcher to that of the helper, in one run.
struct Calls
{
    long systemCalls = 0;
    long fileNames = 0;
};

/// The memory and wake-ups of a launcher whose helper sleeps.
struct Idle
{
    long peakKilobytes = 0;
    long proportionalKilobytes = 0;
    /// Context switches of all its threads in ten seconds.
    long wakeUps = 0;
};

/// The times of one contestant for growing counts of one kind of item.
struct Growth
{
    std::string what;
    std::string contestant;
    std::vector<long> counts;
    std::vector<Spread> spreads;

    /// The cost of one more item in microseconds, from a line fitted to the medians.
    double perItem() const;
    /// The exponent of the growth over the last tenfold step, after the time of the lowest
    /// count is subtracted; none when the growth is within the spread.
    std::optional<double> exponent() const;
};

/// The elapsed time or the processor time of launches.
struct LaunchPart
{
    Spread spread;
    /// The ratios to other contestants, by their names.
    std::map<std::string, Ratio> ratios;
};

/// The cost of launches of one contestant.
struct LaunchSpread
{
    LaunchPart elapsed;
    /// Leaves out the time of waiting for a processor, which is long on a busy machine.
    LaunchPart processor;
};

/// Whether the other contestants are compared with this one.
bool comparedWith(const std::string& contestant);

/// Measures whole launches of a helper that ends at once, in alternating rounds. Stops early
/// when the rounds take too long.
std::vector<LaunchSpread> measureLaunches(const std::vector<Contestant>& contestants,
                                          const Scratch& scratch, long rounds);

/// Measures the time from the end of one helper to the start of the next, for the bare
/// program and the launchers, over 1 000 restarts in alternating rounds.
std::vector<Spread> measureRestarts(const std::vector<Contestant>& contestants,
                                    const Scratch& scratch);
/// Whether measureRestarts() includes the contestant: init programs cannot restart a helper.
bool restarts(const Contestant& contestant);

/// Measures the growth with the numbers of arguments, of environment variables and, for the
/// launchers, of entries in the session directory.
std::vector<Growth> measureGrowth(const std::vector<Contestant>& contestants,
                                  const Scratch& scratch);

/// Counts the system calls and file look-ups of a launch. None when strace is missing or may
/// not trace.
std::optional<Calls> countCalls(const Contestant& contestant, const Scratch& scratch,
                                const std::string& locale);

/// Observes all contestants during the same ten seconds, while their helpers sleep.
std::vector<Idle> observeIdle(const std::vector<Contestant>& contestants, const Scratch& scratch);

// What is measured of the contestants.

#pragma once

#include "bench/contestants.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// In which the true value lies with a confidence of 95 %.
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
    /// Of the median, by its ranks in the binomial distribution.
    Interval interval;
};

/// A ratio of two medians that were measured in the same rounds.
struct Ratio
{
    double value = 0;
    /// From 1 000 bootstrap samples of the rounds.
    Interval interval;
};

/// From the first instruction that the kernel gives a launcher to the start of the
/// helper, in one run.
struct Calls
{
    long systemCalls = 0;
    long fileNames = 0;
};

/// Of a launcher whose helper sleeps.
struct Idle
{
    long peakKilobytes = 0;
    long proportionalKilobytes = 0;
    /// Context switches of all its threads in ten seconds.
    long wakeUps = 0;
};

/// The times of one contestant for growing counts of one thing.
struct Growth
{
    std::string what;
    std::string contestant;
    std::vector<long> counts;
    std::vector<Spread> spreads;

    /// Microseconds for one more, from a straight line through the medians.
    double perItem() const;
    /// The power of the count with which the time above the first one grows, over
    /// the last tenfold step; nothing where no growth stands out of the spread.
    std::optional<double> exponent() const;
};

/// One part of what a launch costs.
struct LaunchPart
{
    Spread spread;
    /// To the contestants of these names.
    std::map<std::string, Ratio> ratios;
};

/// Both parts of what a launch costs.
struct LaunchSpread
{
    LaunchPart elapsed;
    /// Does not count the waiting for a processor, of which a busy machine has much.
    LaunchPart processor;
};

/// Whether the launches of the others are compared with those of that contestant.
bool comparedWith(const std::string& contestant);

/// Whole launches of a helper that ends at once, in alternating rounds: as many as
/// asked for, or fewer when they take too long.
std::vector<LaunchSpread> measureLaunches(const std::vector<Contestant>& contestants,
                                          const Scratch& scratch, long rounds);

/// From the end of one helper to the start of the next, over 1 000 restarts in
/// alternating rounds, for the bare program and the launchers.
std::vector<Spread> measureRestarts(const std::vector<Contestant>& contestants,
                                    const Scratch& scratch);
/// Whether measureRestarts() measures it: public programs start a helper only once.
bool restarts(const Contestant& contestant);

/// The growth with the arguments, the environment and the session directory. The
/// last is for the launchers alone.
std::vector<Growth> measureGrowth(const std::vector<Contestant>& contestants,
                                  const Scratch& scratch);

/// Nothing where strace is missing or may not trace.
std::optional<Calls> countCalls(const Contestant& contestant, const Scratch& scratch,
                                const std::string& locale);

/// All contestants sleep through the same ten seconds.
std::vector<Idle> observeIdle(const std::vector<Contestant>& contestants, const Scratch& scratch);

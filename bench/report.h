#pragma once

#include "bench/measures.h"

/// The results of one contestant.
struct Finding
{
    std::string name;
    LaunchSpread launch;
    /// Without a locale in the environment, and with a UTF-8 locale.
    std::optional<Calls> calls;
    std::optional<Calls> callsWithLocale;
    Idle idle;
    std::optional<Spread> restart;
};

struct Report
{
    std::vector<Finding> findings;
    std::vector<Growth> growth;
};

/// Prints tables to standard output.
void print(const Report& report);
/// Both end the program when the file cannot be written. writePlot() needs gnuplot.
void writeJson(const Report& report, const QString& fileName);
void writePlot(const Report& report, const QString& fileName);

// How the measurements are shown.

#pragma once

#include "bench/measures.h"

/// What is known of one contestant.
struct Finding
{
    std::string name;
    LaunchSpread launch;
    /// Without a locale in the environment, and with one of UTF-8.
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

/// Tables on standard output.
void print(const Report& report);
/// Both end the program when the file cannot be written; the plot needs gnuplot.
void writeJson(const Report& report, const QString& fileName);
void writePlot(const Report& report, const QString& fileName);

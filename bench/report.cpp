// How the measurements are shown.

#include "bench/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace {

const Finding* find(const Report& report, const char* name)
{
    const auto found =
        std::find_if(report.findings.begin(), report.findings.end(),
                     [name](const Finding& finding) { return finding.name == name; });
    return found == report.findings.end() ? nullptr : &*found;
}

double restartRatio(const Report& report, const Finding& finding)
{
    const Finding* const bare = find(report, "bare");
    return finding.restart && bare ? finding.restart->median / bare->restart->median : 0;
}

void printNumber(double number)
{
    if (number > 0) {
        printf(" %10.2f", number);
    } else {
        printf(" %10s", "-");
    }
}

void printSpread(const Spread& spread)
{
    printf(" %10.0f %10.0f %10.0f", spread.lower, spread.median, spread.upper);
}

void printCalls(const std::optional<Calls>& calls)
{
    if (calls) {
        printf(" %10ld %10ld", calls->systemCalls, calls->fileNames);
    } else {
        printf(" %10s %10s", "-", "-");
    }
}

void printLaunches(const Report& report, const char* title, LaunchPart LaunchSpread::*part)
{
    printf("\n%s in microseconds: quartile, median with its 95 %% interval, quartile;\n"
           "ratios of medians with their 95 %% intervals\n",
           title);
    printf("%-12s %8s %8s %17s %8s", "", "lower", "median", "", "upper");
    for (const auto& [name, ratio] : (report.findings.front().launch.*part).ratios) {
        printf(" %18s", ("to " + name).c_str());
    }
    puts("");
    for (const Finding& finding : report.findings) {
        const LaunchPart& found = finding.launch.*part;
        const Spread& spread = found.spread;
        printf("%-12s %8.0f %8.0f (%6.0f to %5.0f) %8.0f", finding.name.c_str(), spread.lower,
               spread.median, spread.interval.low, spread.interval.high, spread.upper);
        for (const auto& [name, ratio] : found.ratios) {
            printf(" %5.3f %.3f-%.3f", ratio.value, ratio.interval.low, ratio.interval.high);
        }
        printf("   of %zu\n", spread.count);
    }
}

void printGrowth(const Growth& growth)
{
    const std::optional<double> exponent = growth.exponent();
    printf("%-10s %-10s", growth.what.c_str(), growth.contestant.c_str());
    for (size_t i = 0; i < growth.counts.size(); ++i) {
        printf(" %ld: %.0f", growth.counts[i], growth.spreads[i].median);
    }
    printf("; %.3f us each", growth.perItem());
    if (exponent) {
        printf(", above the first as the count to the power of %.2f\n", *exponent);
    } else {
        puts(", no growth that stands out");
    }
}

class Output
{
public:
    explicit Output(const std::string& fileName)
        : mName(fileName)
        , mFile(fopen(fileName.c_str(), "we"))
    {
        if (!mFile) {
            fail(mName);
        }
    }
    ~Output()
    {
        if (fclose(mFile) != 0) {
            fail(mName);
        }
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    FILE* file() const { return mFile; }

private:
    std::string mName;
    FILE* mFile;
};

void writeSpread(FILE* file, const char* key, const Spread& spread)
{
    fprintf(file,
            "\"%s\": {\"lower\": %.1f, \"median\": %.1f, \"upper\": %.1f, \"count\": %zu, "
            "\"interval\": [%.1f, %.1f]}",
            key, spread.lower, spread.median, spread.upper, spread.count, spread.interval.low,
            spread.interval.high);
}

void writePart(FILE* file, const std::string& key, const LaunchPart& part)
{
    writeSpread(file, (key + "_us").c_str(), part.spread);
    for (const auto& [name, ratio] : part.ratios) {
        fprintf(file, ",\n    \"%s_to_%s\": {\"ratio\": %.4f, \"interval\": [%.4f, %.4f]}",
                key.c_str(), name.c_str(), ratio.value, ratio.interval.low, ratio.interval.high);
    }
}

void writeCalls(FILE* file, const char* key, const std::optional<Calls>& calls)
{
    if (calls) {
        fprintf(file, ",\n    \"%s\": {\"system_calls\": %ld, \"file_names\": %ld}", key,
                calls->systemCalls, calls->fileNames);
    }
}

void writeFinding(FILE* file, const Finding& finding)
{
    fprintf(file, "   {\"name\": \"%s\",\n    ", finding.name.c_str());
    writePart(file, "launch", finding.launch.elapsed);
    fputs(",\n    ", file);
    writePart(file, "launch_processor", finding.launch.processor);
    writeCalls(file, "calls", finding.calls);
    writeCalls(file, "calls_with_locale", finding.callsWithLocale);
    fprintf(file, ",\n    \"peak_kb\": %ld, \"idle_pss_kb\": %ld, \"idle_wake_ups\": %ld",
            finding.idle.peakKilobytes, finding.idle.proportionalKilobytes, finding.idle.wakeUps);
    if (finding.restart) {
        fputs(",\n    ", file);
        writeSpread(file, "restart_us", *finding.restart);
    }
    fputs("}", file);
}

void writeGrowth(FILE* file, const Growth& growth)
{
    fprintf(file, "   {\"with\": \"%s\", \"name\": \"%s\", \"us_each\": %.4f, \"points\": [",
            growth.what.c_str(), growth.contestant.c_str(), growth.perItem());
    for (size_t i = 0; i < growth.counts.size(); ++i) {
        fprintf(file, "%s\n    {\"count\": %ld, ", i == 0 ? "" : ",", growth.counts[i]);
        writeSpread(file, "launch_us", growth.spreads[i]);
        fputs("}", file);
    }
    fputs("]}", file);
}

template <typename List, typename Write>
void writeList(FILE* file, const char* key, const List& list, const Write& write)
{
    fprintf(file, "  \"%s\": [", key);
    for (size_t i = 0; i < list.size(); ++i) {
        fputs(i == 0 ? "\n" : ",\n", file);
        write(list[i]);
    }
    fputs("]", file);
}

} // namespace

void print(const Report& report)
{
    printLaunches(report, "Whole launch", &LaunchSpread::elapsed);
    printLaunches(report, "Processor time of a whole launch", &LaunchSpread::processor);
    puts("\nSystem calls, and files looked for, up to the helper's start: without a locale,\n"
         "with LANG=C.UTF-8; memory in kB and wake-ups in ten seconds while the helper sleeps");
    printf("%-10s %10s %10s %10s %10s %10s %10s %10s\n", "", "calls", "files", "calls", "files",
           "peak", "share", "wake-ups");
    for (const Finding& finding : report.findings) {
        printf("%-10s", finding.name.c_str());
        printCalls(finding.calls);
        printCalls(finding.callsWithLocale);
        printf(" %10ld %10ld %10ld\n", finding.idle.peakKilobytes,
               finding.idle.proportionalKilobytes, finding.idle.wakeUps);
    }
    puts("\nFrom the end of one helper to the start of the next, in microseconds");
    printf("%-10s %10s %10s %10s %10s\n", "", "lower", "median", "upper", "to bare");
    for (const Finding& finding : report.findings) {
        if (finding.restart) {
            printf("%-10s", finding.name.c_str());
            printSpread(*finding.restart);
            printNumber(restartRatio(report, finding));
            printf("   of %zu\n", finding.restart->count);
        }
    }
    puts("\nMedian of a whole launch in microseconds, for each count of what is passed");
    for (const Growth& growth : report.growth) {
        printGrowth(growth);
    }
}

void writeJson(const Report& report, const std::string& fileName)
{
    const Output output(fileName);
    FILE* const file = output.file();
    fputs("{\n", file);
    writeList(file, "contestants", report.findings,
              [&](const Finding& finding) { writeFinding(file, finding); });
    fputs(",\n", file);
    writeList(file, "growth", report.growth,
              [&](const Growth& growth) { writeGrowth(file, growth); });
    fputs("\n}\n", file);
}

void writePlot(const Report& report, const std::string& fileName)
{
    FILE* const gnuplot = popen("gnuplot", "we");
    if (!gnuplot) {
        fail("gnuplot");
    }
    fprintf(gnuplot,
            "set terminal svg size 900,380 noenhanced background 'white'\n"
            "set output '%s'\n"
            "$launch << end\n",
            fileName.c_str());
    for (const Finding& finding : report.findings) {
        fprintf(gnuplot, "%s %f %f %f\n", finding.name.c_str(),
                finding.launch.elapsed.spread.median / 1000,
                finding.launch.elapsed.spread.lower / 1000,
                finding.launch.elapsed.spread.upper / 1000);
    }
    fputs("end\n", gnuplot);
    std::string lines;
    for (const Growth& growth : report.growth) {
        if (growth.what != "arguments") {
            continue;
        }
        fprintf(gnuplot, "$%s << end\n", growth.contestant.c_str());
        for (size_t i = 0; i < growth.counts.size(); ++i) {
            fprintf(gnuplot, "%ld %f\n", growth.counts[i], growth.spreads[i].median / 1000);
        }
        fputs("end\n", gnuplot);
        lines += (lines.empty() ? "plot $" : ", $") + growth.contestant +
                 " with linespoints title '" + growth.contestant + "'";
    }
    fprintf(gnuplot,
            "set multiplot layout 1,2\n"
            "set ylabel 'milliseconds'\n"
            "set title 'Whole launch: medians and quartiles'\n"
            "set style fill solid 0.4\nset yrange [0:]\nunset key\n"
            "plot $launch using 0:2:3:4:(0.6):xticlabels(1) with boxerrorbars\n"
            "set title 'Whole launch, by the number of arguments'\n"
            "set key top left\nset logscale xy\nset yrange [*:*]\n"
            "%s\n",
            lines.c_str());
    if (pclose(gnuplot) != 0) {
        fprintf(stderr, "%s: gnuplot failed\n", fileName.c_str());
        exit(1);
    }
}

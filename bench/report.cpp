#include "bench/report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

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

QJsonArray jsonOf(const Interval& interval)
{
    return {interval.low, interval.high};
}

QJsonObject jsonOf(const Spread& spread)
{
    return {{QLatin1String("lower"), spread.lower},
            {QLatin1String("median"), spread.median},
            {QLatin1String("upper"), spread.upper},
            {QLatin1String("count"), qint64(spread.count)},
            {QLatin1String("interval"), jsonOf(spread.interval)}};
}

QJsonObject jsonOf(const Calls& calls)
{
    return {{QLatin1String("system_calls"), qint64(calls.systemCalls)},
            {QLatin1String("file_names"), qint64(calls.fileNames)}};
}

void addPart(QJsonObject* object, const QString& key, const LaunchPart& part)
{
    object->insert(key + QLatin1String("_us"), jsonOf(part.spread));
    for (const auto& [name, ratio] : part.ratios) {
        object->insert(key + QLatin1String("_to_") + QString::fromStdString(name),
                       QJsonObject{{QLatin1String("ratio"), ratio.value},
                                   {QLatin1String("interval"), jsonOf(ratio.interval)}});
    }
}

QJsonObject jsonOf(const Finding& finding)
{
    QJsonObject object = {
        {QLatin1String("name"), QString::fromStdString(finding.name)},
        {QLatin1String("peak_kb"), qint64(finding.idle.peakKilobytes)},
        {QLatin1String("idle_pss_kb"), qint64(finding.idle.proportionalKilobytes)},
        {QLatin1String("idle_wake_ups"), qint64(finding.idle.wakeUps)},
    };
    addPart(&object, QStringLiteral("launch"), finding.launch.elapsed);
    addPart(&object, QStringLiteral("launch_processor"), finding.launch.processor);
    if (finding.calls) {
        object.insert(QLatin1String("calls"), jsonOf(*finding.calls));
    }
    if (finding.callsWithLocale) {
        object.insert(QLatin1String("calls_with_locale"), jsonOf(*finding.callsWithLocale));
    }
    if (finding.restart) {
        object.insert(QLatin1String("restart_us"), jsonOf(*finding.restart));
    }
    return object;
}

QJsonObject jsonOf(const Growth& growth)
{
    QJsonArray points;
    for (size_t i = 0; i < growth.counts.size(); ++i) {
        points.append(QJsonObject{{QLatin1String("count"), qint64(growth.counts[i])},
                                  {QLatin1String("launch_us"), jsonOf(growth.spreads[i])}});
    }
    return {{QLatin1String("with"), QString::fromStdString(growth.what)},
            {QLatin1String("name"), QString::fromStdString(growth.contestant)},
            {QLatin1String("us_each"), growth.perItem()},
            {QLatin1String("points"), points}};
}

template <typename List> QJsonArray jsonOf(const List& list)
{
    QJsonArray array;
    for (const auto& entry : list) {
        array.append(jsonOf(entry));
    }
    return array;
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

void writeJson(const Report& report, const QString& fileName)
{
    const QJsonObject root = {{QLatin1String("contestants"), jsonOf(report.findings)},
                              {QLatin1String("growth"), jsonOf(report.growth)}};
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(root).toJson()) == -1 ||
        !file.commit()) {
        fprintf(stderr, "%s: %s\n", qPrintable(fileName), qPrintable(file.errorString()));
        exit(1);
    }
}

void writePlot(const Report& report, const QString& fileName)
{
    FILE* const gnuplot = popen("gnuplot", "we");
    if (!gnuplot) {
        fail("gnuplot");
    }
    fprintf(gnuplot,
            "set terminal svg size 900,380 noenhanced background 'white'\n"
            "set output '%s'\n"
            "$launch << end\n",
            qPrintable(fileName));
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
        fprintf(stderr, "%s: gnuplot failed\n", qPrintable(fileName));
        exit(1);
    }
}

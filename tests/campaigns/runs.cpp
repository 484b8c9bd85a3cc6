// Whole runs, many times.
//
//   ends         helpers that end at once, with every exit code, some with
//                children of their own that end at the same time
//   restarts     that many restarts in one run: the launcher uses no more at
//                the end, and every helper gets the same
//   output       floods of 5 MiB on both streams, and an exit or an abort, read
//                fast, slowly, or not any more

#include "tests/campaigns/harness.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Campaign
{
    const Request& request;
    const Tree& tree;
    std::mt19937& random;
    Tally& tally;

    // The launcher must end with status 0 and leave nothing.
    void checkEnd(pid_t launcher) const
    {
        std::vector<End> ends;
        if (!waitForEnd(launcher, &ends)) {
            tally.wrong("hangs", "the launcher goes on");
        } else if (ends.back().status != 0) {
            tally.wrong("wrong ends", "the launcher ended by " + describe(ends.back().status));
        }
        if (!waitForEnd(-1, &ends)) {
            tally.wrong("orphans", std::to_string(living().size()) + " processes are left");
            killLiving();
        }
    }
};

void tryEnds(const Campaign& campaign)
{
    for (long i = 0; i < campaign.request.count && campaign.tally.goesOn(); ++i) {
        LaunchPlan plan;
        plan.helperActions =
            (i % 3 == 0 ? "--fork-exit --exit " : "--exit ") + std::to_string(i % 256);
        campaign.checkEnd(launch(campaign.tree, plan));
    }
}

struct RestartRecord
{
    long descriptors;
    long threads;
    long residentKiB;
    std::string digest;
};

using RecordIterator = std::vector<RestartRecord>::const_iterator;

// The first record, with the least of each number.
RestartRecord least(RecordIterator begin, RecordIterator end)
{
    RestartRecord result = *begin;
    for (RecordIterator record = begin; record != end; ++record) {
        result.descriptors = std::min(result.descriptors, record->descriptors);
        result.threads = std::min(result.threads, record->threads);
        result.residentKiB = std::min(result.residentKiB, record->residentKiB);
    }
    return result;
}

void tryRestarts(const Campaign& campaign)
{
    LaunchPlan plan;
    plan.helperActions = "--restart-again " + campaign.tree.path("session");
    plan.variables["RESTARTS"] = std::to_string(campaign.request.count);
    campaign.checkEnd(launch(campaign.tree, plan));

    std::vector<RestartRecord> records;
    std::ifstream file(campaign.tree.path("session/restarts"));
    RestartRecord record;
    while (file >> record.descriptors >> record.threads >> record.residentKiB >> record.digest) {
        records.push_back(record);
    }
    if (long(records.size()) != campaign.request.count || records.size() < 11) {
        campaign.tally.wrong("missing", std::to_string(records.size()) + " helpers were started");
        return;
    }
    // A helper that is quick may still see the pipe ends that the launcher closes
    // after the start.
    const long window = 5;
    const RestartRecord early = least(records.begin() + window, records.begin() + 2 * window);
    const RestartRecord last = least(records.end() - window, records.end());
    printf("descriptors %ld, then %ld; threads %ld, then %ld; resident %ld KiB, then %ld KiB; ",
           early.descriptors, last.descriptors, early.threads, last.threads, early.residentKiB,
           last.residentKiB);
    // A page table or an arena may grow once; what leaks grows with the count.
    const long tolerance = 128;
    if (last.descriptors != early.descriptors || last.threads != early.threads ||
        last.residentKiB > early.residentKiB + tolerance) {
        campaign.tally.wrong("leaks", "the launcher uses more than at first");
    }
    for (const RestartRecord& each : records) {
        if (each.digest != early.digest) {
            campaign.tally.wrong("differences", "a helper got something else");
        }
    }
}

constexpr long floodBytes = 5 * 1024 * 1024;

enum Reader { Fast, Slow, Leaving };

long readOutput(int fd, Reader reader)
{
    char buffer[65536];
    long total = 0;
    ssize_t count;
    while ((count = read(fd, buffer, reader == Slow ? 4096 : sizeof buffer)) > 0) {
        total += count;
        if (reader == Slow && total % (64 * 4096) == 0) {
            usleep(200);
        } else if (reader == Leaving && total > floodBytes / 10) {
            break;
        }
    }
    return total;
}

void tryOutput(const Campaign& campaign)
{
    for (long i = 0; i < campaign.request.count && campaign.tally.goesOn(); ++i) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) == -1) {
            perror("pipe2");
            exit(2);
        }
        const std::string flood = std::to_string(floodBytes);
        LaunchPlan plan;
        plan.helperActions = "--flood " + flood + " --flood-error " + flood +
                             (i % 2 == 0 ? " --exit 3" : " --signal 6");
        plan.output = ends[1];
        const pid_t launcher = launch(campaign.tree, plan);
        close(ends[1]);
        const Reader reader = Reader(i % 3);
        const long total = readOutput(ends[0], reader);
        close(ends[0]);
        campaign.checkEnd(launcher);
        if (reader != Leaving && total != 2 * floodBytes) {
            campaign.tally.wrong("losses", std::to_string(total) + " bytes came");
        }
    }
}

const std::map<std::string, std::function<void(const Campaign&)>> modes = {
    {"ends", tryEnds},
    {"restarts", tryRestarts},
    {"output", tryOutput},
};

} // namespace

int main(int argc, char** argv)
{
    const Request request = parseRequest(argc, argv);
    const auto mode = modes.find(request.mode);
    if (mode == modes.end()) {
        fprintf(stderr, "%s: no mode '%s'\n", argv[0], request.mode.c_str());
        return 2;
    }
    const Tree tree;
    std::mt19937 random(request.seed);
    Tally tally(request);
    mode->second({request, tree, random, tally});
    return tally.finish();
}

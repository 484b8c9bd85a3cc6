// Signals at random instants: nothing hangs, nothing is left behind, and the
// launcher and its helper end by the signal.
//
//   start     one signal over twice the time that a start takes
//   pair      two different signals, 0 to 2 ms apart
//   group     a signal to the whole process group, as a terminal sends it
//   restart   one signal while helpers end and are restarted all the time
//   hold      one signal around the end of a helper that is followed by a hold
//   ignored   a helper that ignores SIGTERM: the launcher ends all the same
//   killed    SIGKILL: what is left is one whole helper or none

#include "tests/campaigns/harness.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const int signalNumbers[] = {SIGABRT, SIGINT, SIGTERM, SIGSEGV, SIGFPE, SIGBUS, SIGHUP};

struct Trial
{
    const Tree& tree;
    std::mt19937& random;
    Tally& tally;
    long spanUs;

    int anySignal() const
    {
        return signalNumbers[std::uniform_int_distribution<size_t>(0, std::size(signalNumbers) -
                                                                          1)(random)];
    }
};

pid_t start(const Trial& trial, const std::string& actions, bool ownProcessGroup = false)
{
    LaunchPlan plan;
    plan.helperActions = actions;
    plan.ownProcessGroup = ownProcessGroup;
    plan.variables["RESTARTS"] = "1000000";
    return launch(trial.tree, plan);
}

// The launcher must end by one of the signals that it was sent, its helpers too,
// and nothing may be left.
void checkEnd(const Trial& trial, pid_t launcher, const std::vector<int>& sent)
{
    std::vector<End> ends;
    if (!waitForEnd(launcher, &ends)) {
        trial.tally.wrong("hangs", "the launcher goes on");
    }
    if (!waitForEnd(-1, &ends)) {
        trial.tally.wrong("orphans", std::to_string(living().size()) + " processes are left");
    }
    killLiving();
    for (const End& end : ends) {
        const bool asSent = WIFSIGNALED(end.status) &&
                            std::find(sent.begin(), sent.end(), WTERMSIG(end.status)) != sent.end();
        if (end.pid == launcher && !asSent) {
            trial.tally.wrong("wrong ends", "the launcher ended by " + describe(end.status));
        } else if (end.pid != launcher && !asSent && end.status != 0) {
            trial.tally.wrong("wrong ends", "a helper ended by " + describe(end.status));
        }
    }
    if (trial.tree.exists("session/restart-supported")) {
        trial.tally.wrong("markers", "the marker is left");
    }
    if (trial.tree.exists("stray")) {
        trial.tally.wrong("strays", "a signal was sent to what is no child");
    }
    for (const char* file : {"session/restart-supported", "session/restart", "session/restart-hold",
                             "session/restarts", "stray", "ready"}) {
        trial.tree.remove(file);
    }
}

void tryStart(const Trial& trial)
{
    const int signo = trial.anySignal();
    const pid_t launcher = start(trial, "--sleep");
    sleepRandomly(trial.random, trial.spanUs);
    kill(launcher, signo);
    checkEnd(trial, launcher, {signo});
}

void tryPair(const Trial& trial)
{
    const std::vector<int> sent = {trial.anySignal(), trial.anySignal()};
    const pid_t launcher = start(trial, "--sleep");
    sleepRandomly(trial.random, trial.spanUs);
    kill(launcher, sent[0]);
    sleepRandomly(trial.random, 2000);
    kill(launcher, sent[1]);
    checkEnd(trial, launcher, sent);
}

void tryGroup(const Trial& trial)
{
    const int signo = trial.anySignal();
    const pid_t launcher = start(trial, "--sleep", true);
    sleepRandomly(trial.random, trial.spanUs);
    kill(-launcher, signo);
    checkEnd(trial, launcher, {signo});
}

void tryRestart(const Trial& trial)
{
    const int signo = trial.anySignal();
    const pid_t launcher = start(trial, "--restart-again " + trial.tree.path("session"));
    waitUntil([&] { return trial.tree.size("session/restarts") >= 128; });
    sleepRandomly(trial.random, trial.spanUs);
    kill(launcher, signo);
    checkEnd(trial, launcher, {signo});
}

void tryHold(const Trial& trial)
{
    const int signo = trial.anySignal();
    trial.tree.touch("session/restart-hold");
    const pid_t launcher = start(trial, "--append " + trial.tree.path("ready"));
    waitUntil([&] { return trial.tree.exists("ready"); });
    sleepRandomly(trial.random, trial.spanUs / 4);
    kill(launcher, signo);
    checkEnd(trial, launcher, {signo});
}

void tryIgnored(const Trial& trial)
{
    const pid_t launcher =
        start(trial, "--ignore 15 --append " + trial.tree.path("ready") + " --sleep");
    waitUntil([&] { return trial.tree.exists("ready"); });
    kill(launcher, SIGTERM);
    std::vector<End> ends;
    waitForEnd(launcher, &ends);
    const std::vector<pid_t> left = living();
    if (left.size() != 1) {
        trial.tally.wrong("wrong ends", std::to_string(left.size()) + " helpers are left, not 1");
    }
    for (pid_t helper : left) {
        kill(helper, SIGKILL);
    }
    std::vector<End> helperEnds;
    waitForEnd(-1, &helperEnds);
    if (ends.empty() || !WIFSIGNALED(ends.back().status) ||
        WTERMSIG(ends.back().status) != SIGTERM) {
        trial.tally.wrong("wrong ends", "the launcher did not end by the signal");
    }
    trial.tree.remove("session/restart-supported");
    trial.tree.remove("ready");
}

void tryKilled(const Trial& trial)
{
    const pid_t launcher = start(trial, "--append " + trial.tree.path("ready") + " --sleep");
    sleepRandomly(trial.random, trial.spanUs);
    kill(launcher, SIGKILL);
    std::vector<End> ends;
    waitForEnd(launcher, &ends);
    const size_t left = living().size();
    if (left > 1) {
        trial.tally.wrong("leftovers", std::to_string(left) + " processes are left");
    }
    if (left == 1 && !waitUntil([&] { return trial.tree.size("ready") > 0; })) {
        trial.tally.wrong("leftovers", "half a helper is left");
    }
    killLiving();
    trial.tree.remove("session/restart-supported");
    trial.tree.remove("ready");
}

// The time from the launcher's start to its helper's, the middle of several.
long measureStart(const Trial& trial)
{
    std::vector<long> times;
    for (int i = 0; i < 9; ++i) {
        timespec before;
        timespec after;
        clock_gettime(CLOCK_MONOTONIC, &before);
        const pid_t launcher = start(trial, "--exit 0");
        std::vector<End> ends;
        waitForEnd(launcher, &ends);
        clock_gettime(CLOCK_MONOTONIC, &after);
        times.push_back((after.tv_sec - before.tv_sec) * 1000000 +
                        (after.tv_nsec - before.tv_nsec) / 1000);
    }
    std::sort(times.begin(), times.end());
    trial.tree.remove("session/restart-supported");
    return times[times.size() / 2];
}

const std::map<std::string, std::function<void(const Trial&)>> modes = {
    {"start", tryStart}, {"pair", tryPair},       {"group", tryGroup},   {"restart", tryRestart},
    {"hold", tryHold},   {"ignored", tryIgnored}, {"killed", tryKilled},
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
    Trial trial{tree, random, tally, 0};
    trial.spanUs = 2 * measureStart(trial);
    for (long i = 0; i < request.count && tally.goesOn(); ++i) {
        mode->second(trial);
    }
    printf("span %ld us, ", trial.spanUs);
    return tally.finish();
}

// What the campaigns share: an installation, launches, and the ends of all that
// was started. The program is the subreaper of its descendants (see prctl(2)), so
// that nothing that a launch leaves behind escapes it.

#pragma once

#include <functional>
#include <map>
#include <random>
#include <string>
#include <sys/types.h>
#include <vector>

/// How long an end is waited for that must come, in milliseconds.
extern int endTimeoutMs;

/// What a campaign was asked for on its command line.
struct Request
{
    std::string mode;
    long count = 100;
    unsigned seed = 1;
    /// Stop at the first wrong thing.
    bool stopAtFirst = false;
};

/// `program MODE [--count N] [--seed N] [--timeout MS] [--stop-at-first]`; ends
/// the program for anything else. MS is for endTimeoutMs.
Request parseRequest(int argc, char** argv);

/// A temporary installation with the test child as the helper, and a session
/// directory; removed with its object.
class Tree
{
public:
    Tree();
    ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    std::string path(const std::string& relative) const { return mRoot + "/" + relative; }
    bool exists(const std::string& relative) const;
    void touch(const std::string& relative) const;
    void remove(const std::string& relative) const;
    /// The size of a file, 0 when there is none.
    long size(const std::string& relative) const;

private:
    std::string mRoot;
};

/// How a launch is made.
struct LaunchPlan
{
    /// What stands before the launcher on the command line.
    std::vector<std::string> before;
    /// Actions of the test child.
    std::string helperActions;
    std::map<std::string, std::string> variables;
    bool withSession = true;
    bool ownProcessGroup = false;
    /// Standard output and error; -1 for those of the campaign.
    int output = -1;
};

/// Starts the launcher; its process id. When the campaign has the variable
/// INTERPOSE, the library of that path is put under the launcher, with the
/// campaign's other variables of that name.
pid_t launch(const Tree& tree, const LaunchPlan& plan);

struct End
{
    pid_t pid;
    int status;
};

/// Waits until a process or, for -1, all descendants have ended; what ended
/// meanwhile is added to `ends`. False when that took longer than the timeout, or
/// than endTimeoutMs when that is 0.
bool waitForEnd(pid_t pid, std::vector<End>* ends, int timeoutMs = 0);
/// Waits until the condition holds, looking again each millisecond.
bool waitUntil(const std::function<bool()>& condition);
/// The descendants that live, without those that only wait to be reaped.
std::vector<pid_t> living();
/// Ends what lives, for good.
void killLiving();

/// Counts what was wrong, by kind, and prints the first few of each.
class Tally
{
public:
    explicit Tally(const Request& request)
        : mRequest(request)
    {
    }
    void wrong(const std::string& kind, const std::string& what);
    /// Whether the campaign is to try more.
    bool goesOn() const { return !mRequest.stopAtFirst || mCounts.empty(); }
    /// Prints the summary; the exit status of the program: 1 when anything was
    /// wrong.
    int finish() const;

private:
    const Request& mRequest;
    std::map<std::string, long> mCounts;
};

/// A description of an end, such as "signal 15" or "exit 1".
std::string describe(int status);

/// Sleeps for a random time of up to that many microseconds.
void sleepRandomly(std::mt19937& random, long longestMicroseconds);

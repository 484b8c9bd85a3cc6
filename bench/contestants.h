#pragma once

#include <QTemporaryDir>

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

using Words = std::vector<std::string>;
using Variables = std::map<std::string, std::string>;

/// A program that is compared: it starts the helper and waits for its end.
struct Contestant
{
    std::string name;
    /// Its command line, up to the helper's own arguments.
    Words command;
    std::string helper;
    /// Whether it restarts the helper through the session's files.
    bool isLauncher;
};

/// A directory with an installation for each contestant, a home directory and session
/// directories. The destructor removes it.
class Scratch
{
public:
    /// Creates the directory. Ends this program when that fails.
    Scratch();

    std::string path(const std::string& relative) const;
    /// The environment of every run besides PATH.
    Variables variables() const { return {{"HOME", path("home")}}; }
    /// Creates an empty directory, and removes an existing one first.
    std::string freshDirectory(const std::string& relative) const;

    /// The bare program, the public programs that are on PATH, and the launchers with these
    /// paths, each with its own helper. Prints the names of missing programs. An empty path
    /// leaves a launcher out.
    ///
    /// Copies all programs in the same way: how a file came into the page cache changes the
    /// time of a launch by 5 to 10 %.
    std::vector<Contestant> contestants(const std::string& portable,
                                        const std::string& ordinary) const;

private:
    Contestant install(const std::string& name, const std::string& program) const;

    QTemporaryDir mRoot;
};

/// A running program. The caller must call finish().
class Run
{
public:
    /// Starts `command` with PATH and `variables` as its environment. -1 stands for /dev/null
    /// as standard input and for our own standard output. Ends this program when that fails.
    Run(const Words& command, const Variables& variables, int input = -1, int output = -1);

    pid_t pid() const { return mPid; }
    /// Waits for the end and returns the processor time in microseconds, including that of
    /// the children that the program has waited for. Ends this program when the run takes
    /// longer than 30 seconds, or with `mustSucceed` when its status is not 0.
    double finish(bool mustSucceed = true);

private:
    std::string mName;
    pid_t mPid;
};

/// The cost of a run in microseconds: elapsed time and processor time.
struct Cost
{
    double elapsed;
    double processor;
};

/// Runs a program to its end. Ends this program when the run fails.
Cost costOf(const Words& command, const Variables& variables);

/// The path of a program on PATH; empty when it is not found.
std::string findProgram(const std::string& name);

/// Prints `what` with the text of errno, and ends this program with status 1.
[[noreturn]] void fail(const std::string& what);

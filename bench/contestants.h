// What is compared, and one start of it.

#pragma once

#include <QTemporaryDir>

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

using Words = std::vector<std::string>;
using Variables = std::map<std::string, std::string>;

/// Something that starts the helper and waits for its end.
struct Contestant
{
    std::string name;
    /// Its command line, up to the helper's own arguments.
    Words command;
    std::string helper;
    /// Whether it restarts the helper through the session's files.
    bool isLauncher;
};

/// A directory with an installation for each contestant, a home and room for session
/// directories; removed with its object.
class Scratch
{
public:
    /// Ends this program when it cannot make the directory.
    Scratch();

    std::string path(const std::string& relative) const;
    /// What every start has in its environment besides PATH.
    Variables variables() const { return {{"HOME", path("home")}}; }
    /// Makes the directory, and empties it when it is there.
    std::string freshDirectory(const std::string& relative) const;

    /// The bare program, the public ones that are found in PATH, and the launchers
    /// of these files, each with a helper of its own; what is not there is named on
    /// standard output. An empty name stands for a launcher that was not given.
    ///
    /// All are fresh copies, made alike: how a file came into the page cache changes the
    /// time that a launch takes by 5 to 10 %.
    std::vector<Contestant> contestants(const std::string& portable,
                                        const std::string& ordinary) const;

private:
    Contestant install(const std::string& name, const std::string& program) const;

    QTemporaryDir mRoot;
};

/// A program that was started; whoever has one must call finish().
class Run
{
public:
    /// Starts `command` with the environment of every measurement and `variables`.
    /// Standard input and output are those descriptors, or for -1 /dev/null and our
    /// own. Ends this program when that is impossible.
    Run(const Words& command, const Variables& variables, int input = -1, int output = -1);

    pid_t pid() const { return mPid; }
    /// Waits for the end; the microseconds of processor time that it and what it
    /// waited for took. A run that takes longer than half a minute, or one whose
    /// status is not 0, ends this program when it was to succeed.
    double finish(bool mustSucceed = true);

private:
    std::string mName;
    pid_t mPid;
};

/// What a run took, in microseconds: from before its start to after its end, and of
/// the processors.
struct Cost
{
    double elapsed;
    double processor;
};

/// Runs to the end.
Cost costOf(const Words& command, const Variables& variables);

/// The path of a program in PATH, or an empty string.
std::string findProgram(const std::string& name);

[[noreturn]] void fail(const std::string& what);

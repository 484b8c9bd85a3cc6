#include "bench/contestants.h"

#include <QStandardPaths>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int longestRunMs = 30000;

Words environment(const Variables& variables)
{
    Words result;
    for (const auto& [name, value] : variables) {
        result.emplace_back(name).append("=").append(value);
    }
    result.push_back("PATH=/usr/bin:/bin");
    return result;
}

std::vector<char*> pointers(Words& words)
{
    std::vector<char*> result;
    for (std::string& word : words) {
        result.push_back(word.data());
    }
    result.push_back(nullptr);
    return result;
}

bool endsInTime(pid_t pid)
{
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (fd == -1) {
        fail("pidfd_open");
    }
    pollfd request = {fd, POLLIN, 0};
    int result;
    do {
        result = poll(&request, 1, longestRunMs);
    } while (result == -1 && errno == EINTR);
    close(fd);
    return result == 1;
}

} // namespace

void fail(const std::string& what)
{
    fprintf(stderr, "%s: %s\n", what.c_str(), strerror(errno));
    exit(1);
}

std::string findProgram(const std::string& name)
{
    return QStandardPaths::findExecutable(QString::fromStdString(name)).toStdString();
}

Scratch::Scratch()
{
    if (!mRoot.isValid()) {
        fprintf(stderr, "%s\n", qPrintable(mRoot.errorString()));
        exit(1);
    }
    freshDirectory("home");
}

std::string Scratch::path(const std::string& relative) const
{
    return mRoot.filePath(QString::fromStdString(relative)).toStdString();
}

std::string Scratch::freshDirectory(const std::string& relative) const
{
    fs::remove_all(path(relative));
    fs::create_directory(path(relative));
    return path(relative);
}

Contestant Scratch::install(const std::string& name, const std::string& program) const
{
    for (const char* directory : {"/bin", "/lib", "/libexec"}) {
        fs::create_directories(path(name) + directory);
    }
    const std::string bin = path(name) + "/bin/";
    const std::string helper = bin + "zorv-debugger";
    fs::copy_file(program, bin + "zorv-mpirun");
    fs::copy_file(BENCH_HELPER, helper);
    return {name, {bin + "zorv-mpirun"}, helper, false};
}

std::vector<Contestant> Scratch::contestants(const std::string& portable,
                                             const std::string& ordinary) const
{
    struct Candidate
    {
        std::string name;
        std::string program;
        bool isLauncher;
        // What comes before the helper, which a launcher finds by itself.
        Words options;
    };
    const Candidate candidates[] = {
        {"bare", BENCH_BARE, false, {"1"}},
        {"dumb-init", findProgram("dumb-init"), false, {"--"}},
        {"tini", findProgram("tini"), false, {"-s", "--"}},
        {"tini-static", findProgram("tini-static"), false, {"-s", "--"}},
        {"portable", portable, true, {}},
        {"ordinary", ordinary, true, {}},
    };
    std::vector<Contestant> result;
    for (const Candidate& candidate : candidates) {
        if (access(candidate.program.c_str(), X_OK) == -1) {
            printf("%s: left out, %s\n", candidate.name.c_str(),
                   candidate.program.empty() ? "not given or not installed" : "no such program");
            continue;
        }
        Contestant contestant = install(candidate.name, candidate.program);
        contestant.isLauncher = candidate.isLauncher;
        if (!contestant.isLauncher) {
            Words& command = contestant.command;
            command.insert(command.end(), candidate.options.begin(), candidate.options.end());
            command.push_back(contestant.helper);
        }
        result.push_back(contestant);
    }
    return result;
}

Run::Run(const Words& command, const Variables& variables, int input, int output)
    : mName(command.front())
{
    Words arguments = command;
    Words variableWords = environment(variables);
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(variableWords);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input == -1) {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    } else {
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    }
    if (output != -1) {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }
    errno = posix_spawn(&mPid, argv[0], &actions, nullptr, argv.data(), envp.data());
    if (errno != 0) {
        fail(mName);
    }
    posix_spawn_file_actions_destroy(&actions);
}

double Run::finish(bool mustSucceed)
{
    const bool inTime = endsInTime(mPid);
    if (!inTime) {
        kill(mPid, SIGKILL);
    }
    int status;
    rusage usage;
    while (wait4(mPid, &status, 0, &usage) == -1) {
        if (errno != EINTR) {
            fail("wait4");
        }
    }
    if (!inTime || (mustSucceed && status != 0)) {
        fprintf(stderr, "%s: %s\n", mName.c_str(), inTime ? "failed" : "did not end");
        exit(1);
    }
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e6 +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

Cost costOf(const Words& command, const Variables& variables)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    Run run(command, variables);
    const double processor = run.finish();
    return {std::chrono::duration<double, std::micro>(Clock::now() - start).count(), processor};
}

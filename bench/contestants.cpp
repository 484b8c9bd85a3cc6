// What is compared, and one start of it.

#include "bench/contestants.h"

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
#include <sstream>
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
        result.push_back(name + "=" + value);
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
    const char* const path = getenv("PATH");
    std::istringstream directories(path ? path : "");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        const std::string candidate = directory + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::string();
}

Scratch::Scratch()
    : mRoot((fs::temp_directory_path() / "bench-XXXXXX").string())
{
    if (!mkdtemp(mRoot.data())) {
        fail(mRoot);
    }
    fs::create_directory(path("home"));
}

Scratch::~Scratch()
{
    std::error_code error;
    fs::remove_all(mRoot, error);
}

std::string Scratch::freshDirectory(const std::string& relative) const
{
    fs::remove_all(path(relative));
    fs::create_directory(path(relative));
    return path(relative);
}

Contestant Scratch::install(const std::string& name, const std::string& launcher) const
{
    for (const char* directory : {"/bin", "/lib", "/libexec"}) {
        fs::create_directories(path(name) + directory);
    }
    const std::string bin = path(name) + "/bin/";
    fs::copy_file(launcher, bin + "zorv-mpirun");
    fs::copy_file(BENCH_HELPER, bin + "zorv-debugger");
    return {name, {bin + "zorv-mpirun"}, bin + "zorv-debugger", true};
}

std::vector<Contestant> Scratch::contestants(const std::string& portable,
                                             const std::string& ordinary) const
{
    const std::string helper = BENCH_HELPER;
    std::vector<Contestant> result = {{"bare", {BENCH_BARE, "1", helper}, helper, false}};
    const std::map<std::string, Words> publicOnes = {{"dumb-init", {"--"}}, {"tini", {"-s", "--"}}};
    for (const auto& [name, options] : publicOnes) {
        const std::string program = findProgram(name);
        if (program.empty()) {
            printf("%s: left out, not installed\n", name.c_str());
            continue;
        }
        Words command = {program};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(helper);
        result.push_back({name, command, helper, false});
    }
    for (const auto& [name, file] : Variables{{"portable", portable}, {"ordinary", ordinary}}) {
        if (access(file.c_str(), X_OK) == 0) {
            result.push_back(install(name, file));
        } else {
            printf("%s: left out, %s\n", name.c_str(),
                   file.empty() ? "not given" : "no such program");
        }
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

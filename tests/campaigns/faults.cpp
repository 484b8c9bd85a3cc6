// Every system call of the launcher failed once, with each error that can happen
// to it, by strace: the launcher ends or goes on, leaves no helper, and says what
// went wrong when it fails. What the dynamic loader does before main is left
// out, and so are the calls of the child between its fork and its exec.
//
//   plain      a run without a session
//   session    a run with one
//   restart    a run with a restart
//   failure    a helper that cannot be started
//
// `--count` bounds the number of injections, which are then spread evenly.

#include "tests/campaigns/harness.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What the manual pages list and a machine in trouble gives. Calls that are not
// here cannot fail for such reasons; close() is not, because an injected error
// leaves the descriptor open, which Linux never does, see close(2).
const std::map<std::string, std::vector<const char*>> errorsOf = {
    {"access", {"ENOENT", "EACCES", "ENOMEM"}},
    {"clone", {"EAGAIN", "ENOMEM"}},
    {"clone3", {"EAGAIN", "ENOMEM"}},
    {"close_range", {"ENOMEM", "ENOSYS"}},
    {"connect", {"ENOENT", "EACCES", "EINTR"}},
    {"dup", {"EMFILE"}},
    {"eventfd2", {"EMFILE", "ENOMEM"}},
    {"faccessat2", {"ENOENT", "EACCES", "ENOMEM"}},
    {"fcntl", {"EMFILE", "EINTR"}},
    {"fstat", {"ENOMEM"}},
    {"getcwd", {"ENOENT", "EACCES"}},
    {"getdents64", {"ENOENT", "EIO"}},
    {"mmap", {"ENOMEM"}},
    {"newfstatat", {"ENOENT", "EACCES", "ENOMEM"}},
    {"openat", {"ENOENT", "EACCES", "EMFILE", "ENOMEM", "ENOSPC", "EINTR"}},
    {"pipe2", {"EMFILE"}},
    {"poll", {"EINTR", "ENOMEM"}},
    {"ppoll", {"EINTR", "ENOMEM"}},
    {"prlimit64", {"EPERM"}},
    {"read", {"EINTR", "EIO", "EAGAIN"}},
    {"readlink", {"ENOENT", "EACCES", "ENOMEM"}},
    {"socket", {"EMFILE", "ENOMEM"}},
    {"statx", {"ENOENT", "EACCES", "ENOMEM"}},
    {"unlink", {"ENOENT", "EACCES", "EIO"}},
    {"waitid", {"EINTR"}},
    {"write", {"EINTR", "EIO", "ENOSPC", "EAGAIN"}},
};

// Whether the call in a line of strace's output can fail so: what is no file does
// not wear out or fill up, and a pipe that waits does not ask to be asked again.
bool canFail(const std::string& line, const std::string& error)
{
    const bool isFile = line.find("</") < line.find(',');
    const bool fileError = error == "EIO" || error == "ENOSPC" || error == "EAGAIN";
    const bool isTransfer = line.compare(0, 5, "read(") == 0 || line.compare(0, 6, "write(") == 0;
    return isFile || !fileError || !isTransfer;
}

struct Injection
{
    std::string call;
    int occurrence;
    std::string error;
    // Whether it is the message itself that fails.
    bool isMessage;

    std::string text() const
    {
        return call + ":error=" + error + ":when=" + std::to_string(occurrence);
    }
};

LaunchPlan planFor(const std::string& mode, const Tree& tree)
{
    LaunchPlan plan;
    plan.withSession = mode == "session" || mode == "restart";
    plan.helperActions = mode == "restart" ? "--restart-again " + tree.path("session")
                                           : "--append " + tree.path("ready");
    plan.variables["RESTARTS"] = "2";
    return plan;
}

void cleanUp(const Tree& tree)
{
    for (const char* file : {"session/restart-supported", "session/restart", "session/restart-hold",
                             "session/restarts", "ready"}) {
        tree.remove(file);
    }
}

// The calls of a run, and which occurrence each is. Those before main's first,
// the question for the stack limit, are counted but not returned.
std::vector<Injection> listInjections(const std::string& mode, const Tree& tree)
{
    LaunchPlan plan = planFor(mode, tree);
    const std::string trace = tree.path("trace");
    plan.output = open(tree.path("errors").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    plan.before = {"/usr/bin/strace", "-y", "-o", trace};
    std::vector<End> ends;
    const pid_t launcher = launch(tree, plan);
    waitForEnd(launcher, &ends);
    close(plan.output);
    cleanUp(tree);

    std::vector<std::string> names;
    std::vector<std::string> lines;
    size_t firstOfMain = 0;
    std::ifstream file(trace);
    std::string line;
    while (std::getline(file, line)) {
        const size_t parenthesis = line.find('(');
        if (parenthesis == std::string::npos) {
            continue;
        }
        names.push_back(line.substr(0, parenthesis));
        lines.push_back(line);
        if (line.find("RLIMIT_STACK, NULL") != std::string::npos) {
            firstOfMain = names.size() - 1;
        }
    }
    std::map<std::string, int> occurrences;
    std::vector<Injection> injections;
    for (size_t i = 0; i < names.size(); ++i) {
        const int occurrence = ++occurrences[names[i]];
        const auto errors = errorsOf.find(names[i]);
        if (i >= firstOfMain && errors != errorsOf.end()) {
            const bool isMessage = lines[i].compare(0, 8, "write(2<") == 0;
            for (const char* error : errors->second) {
                if (canFail(lines[i], error)) {
                    injections.push_back({names[i], occurrence, error, isMessage});
                }
            }
        }
    }
    return injections;
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void tryInjection(const std::string& mode, const Injection& injection, const Tree& tree,
                  Tally& tally)
{
    LaunchPlan plan = planFor(mode, tree);
    // "-qq" and "/dev/null": strace itself prints nothing.
    plan.before = {"/usr/bin/strace",
                   "-qq",
                   "-o",
                   "/dev/null",
                   "-e",
                   "trace=" + injection.call,
                   "-e",
                   "inject=" + injection.text()};
    const std::string errors = tree.path("errors");
    plan.output = open(errors.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const pid_t launcher = launch(tree, plan);
    std::vector<End> ends;
    if (!waitForEnd(launcher, &ends)) {
        tally.wrong("hangs", injection.text());
        killLiving();
        return;
    }
    const int status = ends.back().status;
    if (!waitForEnd(-1, &ends)) {
        tally.wrong("orphans", injection.text());
        killLiving();
    }
    close(plan.output);
    const std::string text = contentOf(errors);
    if (status != 0 && (!WIFEXITED(status) || WEXITSTATUS(status) != 1)) {
        tally.wrong("wrong ends", injection.text() + ": " + describe(status) + ": " + text);
    } else if (status != 0 && text.empty() &&
               (!injection.isMessage || injection.error == "EINTR" ||
                injection.error == "EAGAIN")) {
        tally.wrong("silences", injection.text());
    } else if (status == 0 && mode != "restart" && tree.size("ready") == 0) {
        tally.wrong("lost launches", injection.text());
    }
    cleanUp(tree);
}

} // namespace

int main(int argc, char** argv)
{
    Request request = parseRequest(argc, argv);
    const Tree tree;
    if (request.mode == "failure") {
        tree.remove("bin/zorv-debugger");
    }
    const std::vector<Injection> injections = listInjections(request.mode, tree);
    const long all = long(injections.size());
    request.count = std::min(request.count, all);
    Tally tally(request);
    for (long i = 0; i < request.count && tally.goesOn(); ++i) {
        tryInjection(request.mode, injections[size_t(i * all / request.count)], tree, tally);
    }
    printf("%ld injections possible, ", all);
    return tally.finish();
}

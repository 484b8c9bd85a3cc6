#include "common/compatibility_simple/lookups/backends_p.h"

#include "common/compatibility_simple/calls/calls.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace {

// Longer than the ten seconds that two silent name servers take, see resolv.conf(5).
constexpr int limitMs = 15000;
// More than the 120 kB of a host with a thousand addresses.
constexpr qsizetype mostBytes = 1 << 20;

// The longest wait for a killed getent, which may hang in the kernel.
constexpr int killedMs = 1000;

// What getent wrote to its standard output, and how it ended.
struct Answer
{
    enum End {
        ByItself,   // with an exit status or by a signal
        NotStarted, // there is no getent, or no process can be created
        Killed,     // it exceeded one of the limits, or was not asked
    };

    End end = NotStarted;
    int exitStatus = 0; // for ByItself: 128 + N after signal N
    QByteArray output;
};

// The variables that affect a look-up, see hostname(7) and resolv.conf(5), and those of the
// encoding.
QProcessEnvironment environmentOfGetent()
{
    QProcessEnvironment result;
    for (const char* variable :
         {"HOSTALIASES", "LANG", "LC_ALL", "LC_CTYPE", "LOCALDOMAIN", "RES_OPTIONS"}) {
        if (qEnvironmentVariableIsSet(variable)) {
            result.insert(QString::fromLatin1(variable), qEnvironmentVariable(variable));
        }
    }
    return result;
}

// Runs in the child, with all signals blocked. Makes only async-signal-safe calls, see
// signal-safety(7).
void prepareChild(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The kernel sends no signal for a parent that has ended before the call.
    if (sc_getppid() != parent) {
        _exit(1);
    }
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDERR_FILENO);
    for (int signo = 1; signo < NSIG; ++signo) {
        signal(signo, SIG_DFL);
    }
    // A child that stops before its exec would block the caller in vfork(2).
    sigset_t stopping;
    sigemptyset(&stopping);
    for (int signo : {SIGTSTP, SIGTTIN, SIGTTOU}) {
        sigaddset(&stopping, signo);
    }
    sigprocmask(SIG_SETMASK, &stopping, nullptr);
}

// Blocks all signals during the start: the stack of the child is too small for a handler of
// the caller.
void startWithSignalsBlocked(QProcess* process, const char* path, const QStringList& arguments)
{
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    process->start(QString::fromLatin1(path), arguments, QIODevice::ReadOnly);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

bool start(QProcess* process, const QStringList& arguments, const QDeadlineTimer& deadline)
{
    process->setProcessEnvironment(environmentOfGetent());
    process->setInputChannelMode(QProcess::ForwardedInputChannel);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->setChildProcessModifier([parent = sc_getpid()] { prepareChild(parent); });
    for (const char* path : {"/usr/bin/getent", "/bin/getent"}) {
        startWithSignalsBlocked(process, path, arguments);
        if (process->waitForStarted(int(deadline.remainingTime())) || deadline.hasExpired()) {
            return true;
        }
    }
    return false;
}

Answer run(const QStringList& arguments)
{
    Answer answer;
    const QDeadlineTimer deadline(limitMs);
    auto process = std::make_unique<QProcess>();
    if (!start(process.get(), arguments, deadline)) {
        return answer;
    }
    while (answer.output.size() <= mostBytes &&
           process->waitForReadyRead(int(deadline.remainingTime()))) {
        answer.output += process->readAllStandardOutput();
    }
    answer.output += process->readAllStandardOutput();
    if (process->state() == QProcess::NotRunning && answer.output.size() <= mostBytes) {
        answer.end = Answer::ByItself;
        const bool crashed = process->exitStatus() == QProcess::CrashExit;
        answer.exitStatus = crashed ? 128 + process->exitCode() : process->exitCode();
        return answer;
    }
    answer.end = Answer::Killed;
    process->kill();
    process->waitForFinished(killedMs);
    if (process->state() != QProcess::NotRunning) {
        // The destructor would wait longer.
        static_cast<void>(process.release());
    }
    return answer;
}

// Asks getent for a key of `database`. The output has a line for each entry. The answer is
// NotStarted where there is no getent, and Killed when it gave no answer.
Answer ask(const QStringList& options, const char* database, const QByteArray& key)
{
    static bool hangs = false;
    // getent would take a leading dash for an option; no name has one.
    if (hangs || key.isEmpty() || key.startsWith('-')) {
        return {Answer::Killed, 0, QByteArray()};
    }
    Answer answer =
        run(options + QStringList{QString::fromLatin1(database), QString::fromLocal8Bit(key)});
    if (answer.end == Answer::Killed) {
        hangs = true;
        answer.output.clear();
        qWarning("getent %s: no answer; no more names are looked up", database);
    }
    return answer;
}

QList<QByteArrayList> wordsOfLines(const QByteArray& text)
{
    QList<QByteArrayList> result;
    const QByteArrayList lines = text.split('\n');
    for (const QByteArray& line : lines) {
        result += line.simplified().split(' ');
    }
    return result;
}

bool isAddress(const QByteArray& text)
{
    char bytes[sizeof(in6_addr)];
    const QByteArray withoutScope = text.split('%').front();
    return inet_pton(AF_INET, text.constData(), bytes) == 1 ||
           inet_pton(AF_INET6, withoutScope.constData(), bytes) == 1;
}

// Adds the addresses and the canonical name of getent's output to a host. Each line begins
// with an address; the first has the canonical name in column `nameColumn`.
void addTo(Lookups::Host* host, const QByteArray& output, int nameColumn)
{
    const QList<QByteArrayList> lines = wordsOfLines(output);
    for (const QByteArrayList& words : lines) {
        const QByteArray& address = words.front();
        if (isAddress(address)) {
            if (host->canonicalName.isNull()) {
                host->canonicalName = words.value(nameColumn);
            }
            if (!host->addresses.contains(address)) {
                host->addresses += address;
            }
        }
    }
}

// Parses a line of passwd(5); null when it is malformed.
passwd* toPasswd(const QByteArray& line)
{
    static passwd user;
    static QByteArrayList fields;
    fields = line.split(':');
    if (fields.size() != 7) {
        return nullptr;
    }
    user.pw_name = fields[0].data();
    user.pw_passwd = fields[1].data();
    user.pw_uid = fields.at(2).toUInt();
    user.pw_gid = fields.at(3).toUInt();
    user.pw_gecos = fields[4].data();
    user.pw_dir = fields[5].data();
    user.pw_shell = fields[6].data();
    return &user;
}

// The user whose field number `field` of passwd(5) is the text; null for none.
passwd* userWith(int field, const QByteArray& text)
{
    const Answer answer = ask({}, "passwd", text);
    const QByteArray line = answer.end == Answer::NotStarted
                                ? Lookups::EtcFiles::userLine(field, text)
                                : answer.output.split('\n').front();
    passwd* const user = toPasswd(line);
    return user && line.split(':').at(field) == text ? user : nullptr;
}

bool isNumber(const QByteArray& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

Lookups::Host Lookups::Getent::hostOfName(const QByteArray& name)
{
    // The status of getent(1) for a key that does not exist. Any other failure means that
    // it does not know the option, which glibc has since 2.37.
    constexpr int notFound = 2;
    Host host;
    const Answer answer = ask({QStringLiteral("--no-addrconfig")}, "ahosts", name);
    if (answer.end == Answer::NotStarted) {
        return EtcFiles::hostOfName(name);
    }
    addTo(&host, answer.output, 2);
    if (answer.exitStatus != 0 && answer.exitStatus != notFound) {
        // "hosts" adds the IPv6 addresses that "ahosts" leaves out on a host without IPv6.
        // They come last, as getaddrinfo(3) puts unreachable addresses last.
        addTo(&host, ask({}, "ahosts", name).output, 2);
        addTo(&host, ask({}, "hosts", name).output, 1);
    }
    return host;
}

QByteArray Lookups::Getent::nameOfAddress(const QByteArray& address)
{
    // getent would also accept a name.
    if (!isAddress(address)) {
        return QByteArray();
    }
    const Answer answer = ask({}, "hosts", address);
    if (answer.end == Answer::NotStarted) {
        return EtcFiles::nameOfAddress(address);
    }
    const QByteArrayList words = wordsOfLines(answer.output).front();
    return isAddress(words.front()) ? words.value(1) : QByteArray();
}

passwd* Lookups::Getent::userOfName(const QByteArray& name)
{
    return isNumber(name) ? toPasswd(EtcFiles::userLine(0, name)) : userWith(0, name);
}

passwd* Lookups::Getent::userOfId(uid_t uid)
{
    return userWith(2, QByteArray::number(uid));
}

hostent* Lookups::Getent::hostentOfName(const QByteArray& name)
{
    static hostent result;
    static Host host;
    static std::vector<in_addr> addresses;
    static std::vector<char*> addressPointers;
    static char* noAliases[] = {nullptr};
    host = hostOfName(name);
    addresses.clear();
    addressPointers.clear();
    for (const QByteArray& text : std::as_const(host.addresses)) {
        in_addr address;
        if (inet_pton(AF_INET, text.constData(), &address) == 1) {
            addresses.push_back(address);
        }
    }
    if (addresses.empty()) {
        h_errno = HOST_NOT_FOUND;
        return nullptr;
    }
    for (in_addr& address : addresses) {
        addressPointers.push_back(reinterpret_cast<char*>(&address));
    }
    addressPointers.push_back(nullptr);
    result = {host.canonicalName.data(), noAliases, AF_INET, sizeof(in_addr),
              addressPointers.data()};
    return &result;
}

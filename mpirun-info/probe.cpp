#include "mpirun-info/probe.h"

#include "common/compatibility_simple/files/read.h"
#include "common/logger.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

#include <algorithm>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace {

constexpr int pollMs = 20;
// The time that a killed child gets to end.
constexpr int killedMs = 50;

// The child must not keep the parent's output open if it is left behind, and its commands
// must not read the parent's input.
void becomeProbe()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        close(fd);
        if (open("/dev/null", O_RDWR) == -1) {
            return;
        }
    }
}

} // namespace

Probe::Probe(Question question, int limitMs)
    : mQuestion(std::move(question))
    , mLimitMs(limitMs)
{
    start();
}

void Probe::start()
{
    mTimer.start();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1) {
        return;
    }
    Descriptor readEnd(ends[0]);
    const Descriptor writeEnd(ends[1]);
    mPid = fork();
    if (mPid == 0) {
        readEnd.close();
        becomeProbe();
        const QByteArray answer =
            QJsonDocument(QJsonArray{mQuestion()}).toJson(QJsonDocument::Compact);
        blocking_write(writeEnd.get(), answer.constData(), size_t(answer.size()));
        _exit(0);
    }
    if (mPid > 0) {
        mReadEnd = std::move(readEnd);
    }
}

Probe::~Probe()
{
    end();
}

// Gives the process and the descriptor back.
void Probe::end()
{
    if (mPid > 0) {
        // And the commands that it runs.
        kill(-mPid, SIGKILL);
        kill(mPid, SIGKILL);
        // Most children end at once. One that waits for a server may not.
        for (int i = 0; i < killedMs && waitpid(mPid, nullptr, WNOHANG) == 0; ++i) {
            poll(nullptr, 0, 1);
        }
        mPid = -1;
    }
    mReadEnd.close();
}

// Returns whether there was something to read.
bool Probe::read()
{
    const qsizetype size = mBytes.size();
    char buffer[4096];
    ssize_t count = 0;
    do {
        mBytes.append(buffer, count);
        count = uninterrupted([&] { return ::read(mReadEnd.get(), buffer, sizeof buffer); });
    } while (count > 0);
    return mBytes.size() > size;
}

Probe::Outcome Probe::wait()
{
    if (std::exchange(mIsOver, true)) {
        return mOutcome;
    }
    // Other questions may have given back their processes and descriptors.
    if (!isStarted()) {
        start();
    }
    if (!isStarted()) {
        mAnswer = mQuestion();
        return mOutcome = Outcome::Answered;
    }
    siginfo_t ended = {};
    bool isReceiving = false;
    // At least once: the answer may have arrived during the wait for another probe. The rest
    // of an answer that is larger than the pipe comes then, too.
    do {
        pollfd request = {mReadEnd.get(), POLLIN, 0};
        poll(&request, 1, isReceiving || mTimer.elapsed() < mLimitMs ? pollMs : 0);
        // A process that the child has started may keep the pipe open.
        waitid(P_PID, id_t(mPid), &ended, WEXITED | WNOHANG | WNOWAIT);
        isReceiving = read();
    } while (ended.si_pid == 0 && (isReceiving || mTimer.elapsed() < mLimitMs));
    const QJsonArray answers = QJsonDocument::fromJson(mBytes).array();
    if (!answers.isEmpty()) {
        mAnswer = answers.first();
        mOutcome = Outcome::Answered;
    } else if (ended.si_pid != 0) {
        mAnswer = ended.si_status;
        mOutcome = ended.si_code == CLD_EXITED ? Outcome::Exited : Outcome::Killed;
    }
    end();
    return mOutcome;
}

QJsonValue Probe::answer()
{
    wait();
    return mAnswer;
}

QJsonArray answersTo(const std::function<QJsonValue(const QString&)>& question,
                     const QStringList& items)
{
    std::deque<Probe> probes;
    for (const QString& item : items) {
        probes.emplace_back([&] { return question(item); });
    }
    QJsonArray answers;
    for (Probe& probe : probes) {
        answers.append(probe.isAnswered() ? probe.answer() : QJsonValue());
    }
    return answers;
}

Probe::Question partOfReport(const char* section, std::function<void(Report*)> describe)
{
    return [section, describe = std::move(describe)] {
        Report part;
        part.beginSection(section);
        describe(&part);
        return part.packed();
    };
}

QString outputOf(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments, QIODevice::ReadOnly);
    process.waitForFinished(probeLimitMs);
    return QString::fromLocal8Bit(process.readAll());
}

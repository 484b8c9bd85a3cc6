// Questions to servers that may not answer.

#pragma once

#include "mpirun-info/report.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <functional>
#include <sys/types.h>

/// How long one question may take, and how long a section of the report that asks
/// several.
constexpr int probeLimitMs = 2000;
constexpr int sectionLimitMs = 6000;

/// Asks a question in a child process, from its construction on: many can be asked at
/// once, and one that is never answered costs no more than its limit. A child that the
/// kernel does not let go of is left alone: it holds none of this process's files.
///
/// Where no child can be had, the question is asked in this process, in wait().
class Probe
{
public:
    using Question = std::function<QJsonValue()>;
    enum class Outcome {
        Answered,
        NoAnswer, ///< not within the limit
        Exited,   ///< the question ended its process by exit(3)
        Killed,   ///< a signal ended it
    };

    explicit Probe(Question question, int limitMs = probeLimitMs);
    ~Probe();
    Q_DISABLE_COPY_MOVE(Probe)

    /// Waits for the outcome.
    Outcome wait();
    /// After wait(), the answer; the exit status or signal in place of one; null when
    /// there is none.
    QJsonValue answer() const { return mAnswer; }

private:
    void start();
    bool readAnswer();
    bool noteEnd();

    Question mQuestion;
    qint64 mLimitMs;
    QElapsedTimer mTimer;
    pid_t mPid = -1;
    int mFd = -1;
    QByteArray mBytes;
    QJsonValue mAnswer;
    Outcome mOutcome = Outcome::NoAnswer;
};

/// Whether this user may have one more process.
bool canFork();

/// From this many seconds on, an answer is reported as slow.
constexpr double slowSeconds = 0.5;

/// The question whose answer is what `describe` adds to a report, see Report::addPacked().
Probe::Question partOfReport(std::function<void(Report*)> describe);

/// A stopwatch's time in seconds.
double secondsOf(const QElapsedTimer& timer);

/// For use in a probe: runs a program and returns its output, errors included. Empty
/// when it does not start.
QString outputOf(const QString& program, const QStringList& arguments);

// Questions that may take for ever, such as those to a file server.

#pragma once

#include "mpirun-info/report.h"

#include "common/compatibility_simple/files/descriptor.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <functional>
#include <sys/types.h>

/// The time limits of one question, and of a section of the report, which asks several.
constexpr int probeLimitMs = 2000;
constexpr int sectionLimitMs = 6000;

/// Asks a question in a child process, which starts in the constructor. Many questions can
/// be asked at once, and one without an answer costs no more than its limit. A child that
/// the kernel does not end is left behind; it shares no open file with this process.
///
/// If no child can be started, wait() asks the question in this process.
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

    /// Whether the question is asked in a child; if not, errno says why.
    bool isStarted() const { return mPid > 0; }
    /// Waits for the outcome.
    Outcome wait();
    bool isAnswered() { return wait() == Outcome::Answered; }
    /// Waits. The answer, the exit status or the signal number; null for NoAnswer.
    QJsonValue answer();

private:
    void start();
    void end();
    bool read();

    Question mQuestion;
    qint64 mLimitMs;
    QElapsedTimer mTimer;
    pid_t mPid = -1;
    Descriptor mReadEnd;
    QByteArray mBytes;
    bool mIsOver = false;
    QJsonValue mAnswer;
    Outcome mOutcome = Outcome::NoAnswer;
};

/// From this many seconds on, an answer is reported as slow.
constexpr double slowSeconds = 0.5;

/// The answers to a question about each item, asked at once; null for none.
QJsonArray answersTo(const std::function<QJsonValue(const QString&)>& question,
                     const QStringList& items);

/// The question whose answer is what `describe` adds to a section; see Report::addPacked().
Probe::Question partOfReport(const char* section, std::function<void(Report*)> describe);

/// Runs a program and returns its output and its error messages; empty if it does not
/// start. For use in a probe.
QString outputOf(const QString& program, const QStringList& arguments);

// sessionfiles COUNT [FIRST]: reads session files of random content. One that is not
// well-formed changes nothing of a record, and none takes long or much memory. The seeds are
// the fuzzer's. Each ends with its root element: it is not well-formed when it ends earlier.

#include "backend/userdata.h"
#include "fuzz/inputfile.h"

#include <QDir>
#include <QRandomGenerator>

#include <cstdio>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr long mostResidentKiB = 128L * 1024;
constexpr int largestFile = 65536;
constexpr int mostWrong = 3;
QRandomGenerator randomBits;

template <typename List> const auto& pickFrom(const List& list)
{
    return *(std::begin(list) + randomBits.bounded(qsizetype(std::size(list))));
}

const QByteArrayList seeds = [] {
    QByteArrayList contents;
    for (const QFileInfo& entry : QDir(QStringLiteral(SEEDS)).entryInfoList(QDir::Files)) {
        QFile file(entry.filePath());
        contents += file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    }
    return contents;
}();
const QByteArrayList pieces = {"<",  ">",   "&amp;", "&e;",       "'",         "]]>",
                               "<a", "</a", "<!--",  "<![CDATA[", "<!DOCTYPE", "\xed\xa0\x80"};

// Each changes the content at a place, and where there is a number, by so many.
const std::function<void(QByteArray&, qsizetype, long)> changes[] = {
    [](auto& content, auto at, long) { content[at] = char(randomBits.bounded(256)); },
    [](auto& content, auto at, long) { content.remove(at, 1 + randomBits.bounded(8)); },
    [](auto& content, auto at, long) { content.replace(at, content.size(), pickFrom(seeds)); },
    [](auto& content, auto, long n) { content += QByteArray(n, '\0'); },
    [](auto& content, auto at, long n) { content.insert(at, pickFrom(pieces).repeated(n)); },
    [](auto& content, auto at, long n) {
        for (long i = 0; i < n; ++i) {
            content.insert(at, " a" + QByteArray::number(qlonglong(i)) + "=''");
        }
    },
    [](auto& content, auto, long n) {
        content = QByteArray("<a>").repeated(n) + content + QByteArray("</a>").repeated(n);
    },
};

QByteArray mutated(QByteArray content)
{
    for (long left = 1 + randomBits.bounded(2); left > 0 && !content.isEmpty(); --left) {
        // Mostly small, so that many are tried; some up to the largest that is read,
        // and beyond.
        const long number = randomBits.bounded(randomBits.bounded(60) == 0 ? largestFile / 3 : 10);
        pickFrom(changes)(content, randomBits.bounded(content.size()), number);
    }
    return content;
}

// What is wrong with how the record is read; null if nothing is.
const char* faultOf(const QByteArray& content, bool truncated)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(content.constData());
    const QString name = writeInputFile(bytes, size_t(content.size()));
    UserData record;
    record.load(QString(), QStringLiteral("<session host='before' port='7' session='9'/>"));
    // The signal ends a program that hangs.
    alarm(5);
    const bool loaded = record.load(name);
    alarm(0);
    const bool unchanged = record.getCanonicalHostName() == QLatin1String("before") &&
                           record.getPort() == 7 && record.getSession() == 9 &&
                           record.sessionCookie().isNull();
    const UserData::FileState state = record.fileState();
    const bool isWellFormed =
        loaded || state == UserData::FileState::BadPort || state == UserData::FileState::BadSession;
    if (isWellFormed ? truncated : !unchanged) {
        return "misreadings";
    }
    rusage usage;
    const bool excess = getrusage(RUSAGE_SELF, &usage) == 0 && usage.ru_maxrss > mostResidentKiB;
    return excess ? "excesses" : nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    bool isNumber[] = {false, true};
    const long count = QByteArray(argv[1]).toUInt(&isNumber[0]);
    const long first = argc > 2 ? QByteArray(argv[2]).toUInt(&isNumber[1]) : 0;
    if (!isNumber[0] || !isNumber[1] || argc > 3) {
        fputs("usage: sessionfiles COUNT [FIRST]\n", stderr);
        return 2;
    }
    int wrong = 0;
    for (long number = first; number < first + count && wrong < mostWrong; ++number) {
        randomBits.seed(quint32(number));
        const QByteArray seed = pickFrom(seeds);
        const bool truncated = randomBits.bounded(3) == 0;
        QByteArray content = truncated ? seed.left(randomBits.bounded(seed.size())) : mutated(seed);
        const QByteArray shown = content.left(200).toPercentEncoding(" <>/=\"'&;!?[],#");
        if (truncated && qgetenv("INTERPOSE_BREAK") == "reader") {
            // The control: the reader stops at the first ">".
            content = content.left(content.indexOf('>')) + "/>";
        }
        if (const char* const fault = faultOf(content, truncated)) {
            ++wrong;
            fprintf(stderr, "%s: %s\nRepeat it with: sessionfiles 1 %ld\n", fault,
                    shown.constData(), number);
        }
    }
    printf("%ld files tried: %d wrong\n", count, wrong);
    return wrong == 0 && count > 0 ? 0 : 1;
}

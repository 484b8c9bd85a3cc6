// Session files of any content, from real files: one that is not well-formed
// changes nothing of a record but its file name, one that is gives what it says,
// and none takes long or much memory.
//
//   files      mutations and truncations of good files, and files made to hurt
//   control    the same, read by a reader that does not read to the end
//
// What is well-formed is judged by construction for truncations, and else by the
// campaign's own reading of the file as a stream.

#include "backend/userdata.h"
#include "tests/campaigns/harness.h"

#include <QFile>
#include <QStringConverter>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace {

constexpr unsigned longestReadSeconds = 10;
#ifdef __SANITIZE_ADDRESS__
// Freed memory is kept for a while.
constexpr long mostResidentKiB = 512L * 1024;
#else
constexpr long mostResidentKiB = 128L * 1024;
#endif
constexpr int largestFile = 1024 * 1024;

const QByteArrayList samples = {
    "<session host=\"login1,10.1.0.7\" port=\"4242\" session=\"1\" cookie=\"3b5a90\"/>",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE session>\n<session host='a'></session>",
    "<session port=\"4244\"><!-- note --><other session='x'>t<![CDATA[<]]></other></session>",
    "<!DOCTYPE session [<!ENTITY e \"login1\">]><session host=\"&e;,b\" cookie='&#233;&lt;'/>",
    "<?xml version='1.0'?><other host=\"a\" port=\"1\"/>",
    "<session host=\"\xc3\xa9\xe2\x82\xac\" port=\"70000\" session=\"4294967295\"/>",
};
const QByteArrayList pieces = {
    "<",
    ">",
    "/>",
    "&",
    "&amp;",
    "&e;",
    "\"",
    "'",
    "]]>",
    "<!--",
    "-->",
    "<?x?>",
    "=",
    "<session",
    "</session>",
    "port=",
    "session=\"-1\"",
    "<![CDATA[",
    "&#0;",
    "&#x110000;",
    "\xff\xfe",
    "\xed\xa0\x80",
    QByteArray(1, '\0'),
    "<!DOCTYPE a [",
    "host=\"\"",
    "xmlns:a=\"b\"",
    "a:b='c'",
    "\xef\xbb\xbf",
    "4294967296",
    " port='4242x'",
};

using Random = std::mt19937;

int pick(Random& random, qsizetype count)
{
    return std::uniform_int_distribution<int>(0, int(count) - 1)(random);
}

const QByteArray& pickFrom(Random& random, const QByteArrayList& list)
{
    return list.at(pick(random, list.size()));
}

QByteArray mutation(Random& random)
{
    QByteArray content = pickFrom(random, samples);
    for (int changes = 1 + pick(random, 2); changes > 0 && !content.isEmpty(); --changes) {
        const int at = pick(random, content.size());
        switch (pick(random, 5)) {
        case 0:
            content[at] = char(pick(random, 256));
            break;
        case 1:
            content.insert(at, pickFrom(random, pieces));
            break;
        case 2:
            content.remove(at, 1 + pick(random, 8));
            break;
        case 3:
            content.insert(at, content.mid(pick(random, content.size()), pick(random, 20)));
            break;
        default:
            content.replace(at, content.size(), pickFrom(random, samples).mid(at));
        }
    }
    return content;
}

QByteArray repeated(const QByteArray& piece, int bytes)
{
    return piece.repeated(bytes / int(piece.size()));
}

// Each entity is ten times the one before.
QByteArray entityBomb(int depth)
{
    QByteArray content = "<!DOCTYPE session [<!ENTITY e0 \"x\">";
    for (int i = 1; i <= depth; ++i) {
        const QByteArray before = "&e" + QByteArray::number(i - 1) + ";";
        content += "<!ENTITY e" + QByteArray::number(i) + " \"" + before.repeated(10) + "\">";
    }
    const QByteArray last = "&e" + QByteArray::number(depth) + ";";
    return content + "]><session host=\"" + last + "\">" + last + "</session>";
}

QByteArray recoded(Random& random)
{
    using C = QStringConverter;
    const C::Encoding encodings[] = {C::Utf16,   C::Utf16LE, C::Utf16BE, C::Utf32,
                                     C::Utf32LE, C::Utf32BE, C::Latin1};
    const C::Encoding encoding = encodings[pick(random, std::size(encodings))];
    const char* const names[] = {"UTF-8", "UTF-16", "UTF-32", "ISO-8859-1", "EBCDIC-US", "x"};
    QByteArray text = pickFrom(random, samples);
    if (!text.startsWith("<?xml")) {
        text.prepend(QByteArray("<?xml version=\"1.0\" encoding=\"") +
                     names[pick(random, std::size(names))] + "\"?>");
    }
    const C::Flags flags = pick(random, 2) == 0 ? C::Flag::WriteBom : C::Flag::Default;
    return QStringEncoder(encoding, flags)(QString::fromUtf8(text));
}

QByteArray hostile(Random& random)
{
    // Mostly small, so that many are tried; some up to the largest that is read,
    // and beyond.
    const int bytes = 1 + pick(random, pick(random, 200) == 0 ? largestFile + 1000 : 4000);
    switch (pick(random, 7)) {
    case 0:
        return repeated("<session>", bytes);
    case 1:
        return repeated("<a>", bytes) + QByteArray("</a>").repeated(bytes / 3);
    case 2:
        return entityBomb(1 + pick(random, 12));
    case 3:
        return "<!DOCTYPE session [<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">]><session host='&a;'/>";
    case 4:
        return "<session host=\"" + repeated("a,", bytes) + "\" cookie=\"" + repeated("c", bytes) +
               "\" port=\"" + repeated("4", pick(random, 12)) + "\"/>";
    case 5:
        return pickFrom(random, samples) + QByteArray(bytes, '\0');
    default:
        return recoded(random);
    }
}

struct Case
{
    QByteArray content;
    bool truncated = false;
};

Case makeCase(long number, Random& random)
{
    static long cut = 0;
    if (number % 3 == 0) {
        // Every sample, after each of its bytes but the last.
        const QByteArray& sample = samples.at(cut % samples.size());
        const qsizetype length = cut++ / samples.size() % sample.size();
        return {sample.left(length), true};
    }
    return {number % 3 == 1 ? mutation(random) : hostile(random), false};
}

// A file that is always there, with new content each time.
class SessionFile
{
public:
    SessionFile()
        : mFile(mDirectory.filePath(QStringLiteral("session-file")))
    {
        if (!mFile.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
            perror("session-file");
            exit(2);
        }
    }
    QString name() const { return mFile.fileName(); }
    void write(const QByteArray& content)
    {
        if (!mFile.resize(0) || !mFile.seek(0) || mFile.write(content) != content.size()) {
            perror("session-file");
            exit(2);
        }
    }

private:
    QTemporaryDir mDirectory;
    QFile mFile;
};

struct Fields
{
    QStringList hosts = {QStringLiteral("before")};
    quint32 port = 7;
    int session = 9;
    QString cookie = QStringLiteral("kept");
    bool explicitPort = false;
};

bool operator==(const Fields& a, const Fields& b)
{
    return a.hosts == b.hosts && a.port == b.port && a.session == b.session &&
           a.cookie == b.cookie && a.explicitPort == b.explicitPort;
}

UserData recordBefore()
{
    UserData record;
    record.load(QStringLiteral("none"),
                QStringLiteral("<session host='before' port='7' session='9' cookie='kept'/>"));
    return record;
}

// The broken reader of the control: takes the attributes that stand before the
// first ">", whatever follows.
bool loadCarelessly(UserData& record, const QString& fileName)
{
    const bool loaded = record.load(fileName);
    QFile file(fileName);
    if (!loaded && file.open(QIODevice::ReadOnly)) {
        QString text = QString::fromUtf8(file.readAll());
        text.truncate(text.indexOf(QLatin1Char('>')));
        record.load(fileName, text + QStringLiteral("/>"));
    }
    return loaded;
}

// What the file says: whether it is to be read at all, and the fields then.
bool judge(const SessionFile& sessionFile, const Case& each, Fields* fields)
{
    QFile file(sessionFile.name());
    if (each.truncated || each.content.size() > largestFile || !file.open(QIODevice::ReadOnly)) {
        return false;
    }
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    QXmlStreamAttributes attributes;
    for (bool first = true; !reader.atEnd();) {
        if (reader.readNext() == QXmlStreamReader::StartElement && first) {
            first = false;
            if (reader.qualifiedName() == QLatin1String("session")) {
                attributes = reader.attributes();
            }
        }
    }
    if (reader.hasError()) {
        return false;
    }
    bool ok = true;
    const auto has = [&](const char* name) {
        return ok && attributes.hasAttribute(QLatin1String(name));
    };
    const auto value = [&](const char* name) { return attributes.value(QLatin1String(name)); };
    if (has("port")) {
        fields->port = value("port").toUInt(&ok);
        // The file is of today.
        fields->explicitPort = ok;
    }
    if (has("host")) {
        fields->hosts = value("host").toString().split(QLatin1Char(','));
    }
    if (has("cookie")) {
        fields->cookie = value("cookie").toString();
    }
    if (has("session")) {
        fields->session = int(value("session").toUInt(&ok));
    }
    return ok;
}

long highWaterKiB()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    long kiB = -1;
    while (status >> word) {
        if (word == "VmHWM:") {
            status >> kiB;
        }
    }
    return kiB;
}

std::string printable(const QByteArray& content)
{
    return content.left(200).toPercentEncoding(" <>/=\"'&;!?[],#").toStdString();
}

void tryFiles(const Request& request, Tally& tally)
{
    Random random(request.seed);
    SessionFile file;
    long refused = 0;
    for (long i = 0; i < request.count && tally.goesOn(); ++i) {
        const Case each = makeCase(i, random);
        file.write(each.content);
        Fields expected;
        const bool good = judge(file, each, &expected);

        UserData record = recordBefore();
        // The signal ends a campaign that hangs.
        alarm(longestReadSeconds);
        const bool loaded = request.mode == "control" ? loadCarelessly(record, file.name())
                                                      : record.load(file.name());
        alarm(0);
        const Fields fields = {record.getHostNamesAndAddresses(), record.getPort(),
                               record.getSession(), record.sessionCookie(),
                               record.isExplicitPort()};
        refused += loaded ? 0 : 1;
        if (loaded != good || !(fields == expected)) {
            tally.wrong("misreadings", printable(each.content));
        }
        if (record.sessionFileName() != file.name()) {
            tally.wrong("names", printable(each.content));
        }
    }
    const long resident = highWaterKiB();
    printf("%ld refused; at most %ld KiB resident; ", refused, resident);
    if (resident > mostResidentKiB) {
        tally.wrong("excesses", std::to_string(resident) + " KiB");
    }
}

} // namespace

int main(int argc, char** argv)
{
    const Request request = parseRequest(argc, argv);
    if (request.mode != "files" && request.mode != "control") {
        fprintf(stderr, "%s: no mode '%s'\n", argv[0], request.mode.c_str());
        return 2;
    }
    Tally tally(request);
    tryFiles(request, tally);
    return tally.finish();
}

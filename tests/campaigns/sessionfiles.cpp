// Session files of any content, from real files: one that is not well-formed
// changes nothing of a record but its file name, one that is gives what it says,
// and none takes long or much memory.
//
// The seeds are those of the fuzzer; each ends with its root element, so that it is
// not well-formed when it ends earlier. Of other files, the campaign's own reading
// says what they are.

#include "backend/userdata.h"
#include "fuzz/inputfile.h"
#include "tests/campaigns/campaign.h"

#include <QBuffer>
#include <QDir>
#include <QStringConverter>
#include <QVariant>
#include <QXmlStreamReader>

#include <sys/resource.h>
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

const QByteArrayList seeds = [] {
    QByteArrayList contents;
    for (const QFileInfo& entry : QDir(QStringLiteral(SEEDS)).entryInfoList(QDir::Files)) {
        QFile file(entry.filePath());
        contents += file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    }
    return contents;
}();
const QByteArrayList pieces = {"<",
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
                               "<session>",
                               "</session>",
                               "port=",
                               "session=\"-1\"",
                               "<![CDATA[",
                               "&#0;",
                               "&#x110000;",
                               "\xff\xfe",
                               "\xed\xa0\x80",
                               "<!DOCTYPE a [",
                               "host=\"\"",
                               "xmlns:a=\"b\"",
                               "a:b='c'",
                               "\xef\xbb\xbf",
                               "4294967296",
                               " port='4242x'",
                               "a,"};

const QByteArray& pickFrom(const QByteArrayList& list)
{
    return list.at(pick(list.size()));
}

QByteArray recoded(const QByteArray& content)
{
    const char* const names[] = {"UTF-8", "UTF-16", "UTF-32", "ISO-8859-1", "EBCDIC-US", "x"};
    const QByteArray prolog =
        "<?xml version=\"1.0\" encoding=\"" + QByteArray(names[pick(std::size(names))]) + "\"?>";
    // From UTF-8 to Latin-1, with the UTF-16 and UTF-32 ones between.
    const auto encoding = QStringConverter::Encoding(pick(QStringConverter::Latin1 + 1));
    const auto flag = pick(2) == 0 ? QStringConverter::Flag::WriteBom : QStringConverter::Flag{};
    return QStringEncoder(encoding, flag)(
        QString::fromUtf8(content.startsWith("<?xml") ? content : prolog + content));
}

QByteArray mutation()
{
    QByteArray content = pickFrom(seeds);
    for (long changes = 1 + pick(2); changes > 0 && !content.isEmpty(); --changes) {
        // Mostly small, so that many are tried; some up to the largest that is
        // read, and beyond.
        const long times = pick(pick(600) == 0 ? largestFile / 3 : 1000);
        const qsizetype at = pick(content.size());
        switch (pick(9)) {
        case 0:
            content[at] = char(pick(256));
            break;
        case 1:
            content.insert(at, pickFrom(pieces));
            break;
        case 2:
            content.insert(at, pickFrom(pieces).repeated(times));
            break;
        case 3:
            content.remove(at, 1 + pick(8));
            break;
        case 4:
            content.insert(at, content.mid(pick(content.size()), pick(20)));
            break;
        case 5:
            content.replace(at, content.size(), pickFrom(seeds).mid(at));
            break;
        case 6:
            content += QByteArray(times, '\0');
            break;
        case 7:
            content =
                QByteArray("<a>").repeated(times) + content + QByteArray("</a>").repeated(times);
            break;
        default:
            content = recoded(content);
        }
    }
    return content;
}

// Every seed, after each of its bytes but the last.
QByteArray truncation(long number)
{
    long length = number % seeds.join().size();
    for (const QByteArray& seed : seeds) {
        if (length < seed.size()) {
            return seed.left(length);
        }
        length -= seed.size();
    }
    return QByteArray();
}

enum { Hosts, Port, Session, Cookie, ExplicitPort };

QVariantList fields(const UserData& record)
{
    return {record.getHostNamesAndAddresses(),
            record.getPort(),
            record.getSession(),
            record.sessionCookie(),
            record.isExplicitPort(),
            record.sessionFileName()};
}

// Whether the file is to be read at all, and the fields then.
bool judge(QByteArray content, QVariantList* expected)
{
    if (content.size() > largestFile) {
        return false;
    }
    QBuffer file(&content);
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    QXmlStreamAttributes attributes;
    bool atRoot = file.open(QIODevice::ReadOnly);
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && atRoot) {
            atRoot = false;
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
    const auto value = [&](const char* name) {
        return attributes.value(QLatin1String(name)).toString();
    };
    if (has("port")) {
        (*expected)[Port] = value("port").toUInt(&ok);
        // The file is of today.
        (*expected)[ExplicitPort] = ok;
    }
    if (has("host")) {
        (*expected)[Hosts] = value("host").split(QLatin1Char(','));
    }
    if (has("cookie")) {
        (*expected)[Cookie] = value("cookie");
    }
    if (has("session")) {
        (*expected)[Session] = int(value("session").toUInt(&ok));
    }
    return ok;
}

} // namespace

void trySessionFile(long number)
{
    const bool truncated = number % 3 == 0;
    QByteArray content = truncated ? truncation(number / 3) : mutation();
    const std::string shown = content.left(200).toPercentEncoding(" <>/=\"'&;!?[],#").toStdString();
    UserData record;
    record.load(QStringLiteral("none"),
                QStringLiteral("<session host='before' port='7' session='9' cookie='kept'/>"));
    QVariantList expected = fields(record);
    const bool good = !truncated && judge(content, &expected);
    if (!good && qgetenv("INTERPOSE_BREAK") == "reader") {
        // The control: the reader stops at the first ">".
        content = content.left(content.indexOf('>')) + "/>";
    }
    const QString name = writeInputFile(reinterpret_cast<const uint8_t*>(content.constData()), size_t(content.size()));
    expected.last() = name;

    // The signal ends a campaign that hangs.
    alarm(longestReadSeconds);
    const bool loaded = record.load(name);
    alarm(0);
    if (loaded != good || fields(record) != expected) {
        wrong("misreadings", shown);
    }
    rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) == 0 && usage.ru_maxrss > mostResidentKiB) {
        wrong("excesses", std::to_string(usage.ru_maxrss) + " KiB after " + shown);
    }
}

// Reads session files of any content. A file that is not well-formed changes nothing of
// a record but its file name, a well-formed one gives what it says, and none takes long
// or much memory. The seeds are the fuzzer's. Each ends with its root element: it is not
// well-formed when it ends earlier. The campaign reads all other files itself, to know
// what the record has to say.

#include "backend/userdata.h"
#include "fuzz/inputfile.h"
#include "tests/campaigns/campaign.h"

#include <QBuffer>
#include <QDir>
#include <QStringConverter>
#include <QVariant>
#include <QXmlStreamReader>

#include <functional>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr long mostResidentKiB = 128L * 1024;
constexpr int largestFile = 65536;

const QByteArrayList seeds = [] {
    QByteArrayList contents;
    for (const QFileInfo& entry : QDir(QStringLiteral(SEEDS)).entryInfoList(QDir::Files)) {
        QFile file(entry.filePath());
        contents += file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    }
    return contents;
}();
const QByteArrayList pieces =
    QByteArray("< > /> & &amp; &e; \" ' ]]> <!-- --> <?x?> = <session> </session> port= "
               "session=\"-1\" <![CDATA[ &#0; &#x110000; \xff\xfe \xed\xa0\x80 <!DOCTYPE\na\n[ "
               "<!DOCTYPE\na> "
               "host=\"\" xmlns:a=\"b\" \na:b='c' \xef\xbb\xbf 4294967296 \nport='4242x' a,")
        .split(' ');

QByteArray recoded(const QByteArray& content)
{
    const char* const names[] = {"UTF-8",        "UTF-16",    "UTF-32", "ISO-8859-1",
                                 "windows-1252", "EBCDIC-US", "x"};
    const QByteArray start =
        QByteArray("<?xml version=\"1.0\" encoding=\"") + pickFrom(names) + "\"?>";
    const auto encoding = QStringConverter::Encoding(pick(QStringConverter::Latin1 + 1));
    const auto flag = pick(2) == 0 ? QStringConverter::Flag::WriteBom : QStringConverter::Flag{};
    const QByteArray text = content.startsWith("<?xml") ? content : start + content;
    return QStringEncoder(encoding, flag)(QString::fromUtf8(text));
}

// Each changes the content at a place, and where there is a number, by so many.
const std::function<void(QByteArray&, qsizetype, long)> changes[] = {
    [](auto& content, auto at, long) { content[at] = char(pick(256)); },
    [](auto& content, auto at, long) { content.insert(at, pickFrom(pieces)); },
    [](auto& content, auto at, long) { content.remove(at, 1 + pick(8)); },
    [](auto& content, auto at, long) { content.insert(at, content.right(pick(20))); },
    [](auto& content, auto at, long) {
        content.replace(at, content.size(), pickFrom(seeds).mid(at));
    },
    [](auto& content, auto, long) { content = recoded(content); },
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

QByteArray mutation()
{
    QByteArray content = pickFrom(seeds);
    for (long left = 1 + pick(2); left > 0 && !content.isEmpty(); --left) {
        // Mostly small, so that many are tried; some up to the largest that is read,
        // and beyond.
        const long number = pick(pick(60) == 0 ? largestFile / 3 : 1000);
        pickFrom(changes)(content, pick(content.size()), number);
    }
    return content;
}

// Every seed, after each of its bytes but the last.
const QByteArrayList truncations = [] {
    QByteArrayList contents;
    for (const QByteArray& seed : seeds) {
        for (qsizetype length = 0; length < seed.size(); ++length) {
            contents += seed.left(length);
        }
    }
    return contents;
}();

// The attributes of a session file, and what else it may change.
using Fields = std::map<std::string, QVariant>;

Fields fieldsOf(const UserData& record)
{
    return {{"host", record.getHostNamesAndAddresses().join(QLatin1Char(','))},
            {"port", record.getPort()},
            {"session", quint32(record.getSession())},
            {"cookie", record.sessionCookie()},
            {"(explicit port)", record.isExplicitPort()},
            {"(file)", record.sessionFileName()}};
}

// Whether a file of entities of its own is refused depends on where their declarations
// are: in a comment, in a processing instruction and in a CDATA section they are none.
bool declaresEntities(QByteArray content)
{
    return content.replace('\0', "").contains("<!ENTITY");
}

bool mayHideDeclarations(QByteArray content)
{
    content.replace('\0', "");
    return content.contains("<!--") || content.contains("<?x?") || content.contains("<![CDATA[");
}

// Whether a token's names and texts are characters; the decoder of UTF-32 lets other
// numbers through.
bool isText(const QXmlStreamReader& reader)
{
    bool result = reader.text().isValidUtf16() && reader.qualifiedName().isValidUtf16() &&
                  reader.processingInstructionData().isValidUtf16();
    for (const QXmlStreamAttribute& attribute : reader.attributes()) {
        result =
            result && attribute.qualifiedName().isValidUtf16() && attribute.value().isValidUtf16();
    }
    return result;
}

// Whether the file is to be read at all, and the fields then.
bool judge(QByteArray content, Fields* fields)
{
    QBuffer file(&content);
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    bool ok = file.open(QIODevice::ReadOnly);
    QXmlStreamAttributes attributes;
    QList<QXmlStreamReader::TokenType> tokens;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        ok = ok && isText(reader);
        if (token == QXmlStreamReader::StartElement && !tokens.contains(token) &&
            reader.qualifiedName() == QLatin1String("session")) {
            attributes = reader.attributes();
        }
        // One DOCTYPE at most, before the root element.
        ok = ok && (token != QXmlStreamReader::DTD ||
                    !(tokens.contains(token) || tokens.contains(QXmlStreamReader::StartElement)));
        tokens += token;
    }
    ok = ok && !reader.hasError();
    for (const char* name : {"port", "host", "cookie", "session"}) {
        if (ok && attributes.hasAttribute(QLatin1String(name))) {
            const QString value = attributes.value(QLatin1String(name)).toString();
            QVariant& field = (*fields)[name];
            const bool isNumber = field.userType() == QMetaType::UInt;
            field = isNumber ? QVariant(value.toUInt(&ok)) : QVariant(value);
            if (&field == &(*fields)["port"]) {
                // The file is of today.
                (*fields)["(explicit port)"] = ok;
            }
        }
    }
    return ok;
}

} // namespace

void trySessionFile(long number)
{
    const bool truncated = number % 3 == 0;
    QByteArray content = truncated ? truncations.at(number / 3 % truncations.size()) : mutation();
    const std::string shown = content.left(200).toPercentEncoding(" <>/=\"'&;!?[],#").toStdString();
    UserData record;
    record.load(QStringLiteral("none"),
                QStringLiteral("<session host='before' port='7' session='9' cookie='kept'/>"));
    Fields expected = fieldsOf(record);
    const bool entities = declaresEntities(content);
    // Of some of these, only the time and the memory are judged.
    const bool judged = truncated || !entities || !mayHideDeclarations(content);
    const bool good =
        !truncated && !entities && content.size() <= largestFile && judge(content, &expected);
    if (!good && qgetenv("INTERPOSE_BREAK") == "reader") {
        // The control: the reader stops at the first ">".
        content = content.left(content.indexOf('>')) + "/>";
    }
    const auto* const bytes = reinterpret_cast<const uint8_t*>(content.constData());
    const QString name = writeInputFile(bytes, size_t(content.size()));
    expected["(file)"] = name;
    // The signal ends a campaign that hangs.
    alarm(5);
    const bool loaded = record.load(name);
    alarm(0);
    if (judged && (loaded != good || fieldsOf(record) != expected)) {
        wrong("misreadings", shown);
    }
    rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) == 0 && usage.ru_maxrss > mostResidentKiB) {
        wrong("excesses", std::to_string(usage.ru_maxrss) + " KiB after " + shown);
    }
}

#include "backend/userdata.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/files/read.h"

#include <QDateTime>
#include <QFileInfo>
#include <QStringConverter>
#include <QXmlStreamReader>

#include <cerrno>

namespace {

// In bytes. A session file has a few hundred. The time of the XML reader grows with the
// square of the number of attributes.
constexpr qsizetype largestFile = 65536;

using FileState = UserData::FileState;

// Decodes a document from the encoding that its declaration or its first bytes tell, see
// appendix F of the XML recommendation. Empty when this Qt does not know the encoding or the
// bytes are not valid in it.
QString decoded(const QByteArray& document)
{
    QXmlStreamReader reader(document);
    reader.readNext();
    const QByteArray name = reader.documentEncoding().toLatin1();
    const auto seen = QStringConverter::encodingForData(document, u'<');
    QStringDecoder decoder = name.isEmpty() ? QStringDecoder(seen.value_or(QStringConverter::Utf8))
                                            : QStringDecoder(name.constData());
    const QString text = decoder(document);
    // The decoder accepts UTF-32 code units that are no characters.
    const bool isText = !reader.hasError() && !decoder.hasError() && text.isValidUtf16();
    return isText ? text : QString();
}

FileState readText(const QString& fileName, QString* text)
{
    // One byte beyond the limit tells whether the file is too large.
    const Result<QByteArray> content = readRegularFile(fileName, largestFile + 1);
    if (!content) {
        const int code = content.error().code;
        if (code == ENXIO) {
            return FileState::NotRegular;
        }
        return code == ENOENT || code == ENOTDIR ? FileState::Missing : FileState::Unreadable;
    }
    if (content->size() > largestFile) {
        return FileState::TooLarge;
    }
    *text = decoded(*content);
    return FileState::Read;
}

// Parses the whole document. Sets the attributes if the root element is a session.
FileState parse(QString document, QXmlStreamAttributes* attributes)
{
    // Makes each declaration of an entity an error; a comment may still contain the word.
    // QXmlStreamReader limits the length of one expanded entity, but not the total length
    // of many, nor the number of empty ones.
    document.replace(QLatin1String("<!ENTITY"), QLatin1String("<!entity"));
    QXmlStreamReader reader(document);
    reader.setNamespaceProcessing(false);
    FileState state = FileState::NoSession;
    int doctypes = 0;
    int elements = 0;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::DTD && (elements > 0 || ++doctypes > 1)) {
            return FileState::NotWellFormed;
        }
        if (token == QXmlStreamReader::StartElement && ++elements == 1 &&
            reader.qualifiedName() == TAGNAME) {
            *attributes = reader.attributes();
            state = FileState::Read;
        }
    }
    return reader.hasError() ? FileState::NotWellFormed : state;
}

bool isOfToday(const QString& fileName)
{
    return QFileInfo(fileName).lastModified().date() == QDate::currentDate();
}

} // namespace

bool UserData::load(const QString& fileName, const QString& xml)
{
    return load(fileName, xml, Source::Default);
}

bool UserData::load(const QString& fileName, const QString& xml, Source source)
{
    mSessionFileName = fileName;
    QString text = xml;
    QXmlStreamAttributes attributes;
    mFileState = xml.isNull() ? readText(fileName, &text) : FileState::Read;
    if (mFileState == FileState::Read) {
        mFileState = parse(text, &attributes);
    }
    if (mFileState == FileState::Read) {
        mFileState = takeAttributes(attributes, source);
    }
    return mFileState == FileState::Read || mFileState == FileState::NoSession ||
           (mFileState == FileState::NotWellFormed && !xml.isNull());
}

UserData::FileState UserData::takeAttributes(const QXmlStreamAttributes& attributes, Source source)
{
    bool ok = true;
    if (attributes.hasAttribute(XML_PORT)) {
        set(&port, attributes.value(XML_PORT).toUInt(&ok), Port, source);
        if (!ok) {
            return FileState::BadPort;
        }
        mExplicitPort = mExplicitPort || isOfToday(mSessionFileName);
    }
    if (attributes.hasAttribute(XML_HOST)) {
        set(&hostNamesAndAddresses, attributes.value(XML_HOST).toString().split(QLatin1Char(',')),
            Hosts, source);
    }
    if (attributes.hasAttribute(XML_SESSION_COOKIE)) {
        set(&mSessionCookie, attributes.value(XML_SESSION_COOKIE).toString(), Cookie, source);
    }
    if (attributes.hasAttribute(XML_SESSION)) {
        set(&mSession, static_cast<qint32>(attributes.value(XML_SESSION).toUInt(&ok)), Session,
            source);
    }
    return ok ? FileState::Read : FileState::BadSession;
}

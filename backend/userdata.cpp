// The session record and the session file that it is read from.

#include "backend/userdata.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/files/read.h"

#include <QDateTime>
#include <QFileInfo>
#include <QStringConverter>
#include <QXmlStreamReader>

#include <cerrno>
#include <utility>

namespace {

// A session file is one element of a few hundred bytes. The XML reader's time grows
// with the square of the number of attributes.
constexpr qsizetype largestFile = 65536;

using FileState = UserData::FileState;

FileState stateAfter(const FileError& error)
{
    switch (error.code) {
    case ENOENT:
    case ENOTDIR:
        return FileState::Missing;
    case ENXIO:
        return FileState::NotRegular;
    default:
        return FileState::Unreadable;
    }
}

FileState readFile(const QString& fileName, QByteArray* content)
{
    // One byte more than allowed shows a file that is too large.
    Result<QByteArray> result = readRegularFile(fileName, largestFile + 1);
    if (!result) {
        return stateAfter(result.error());
    }
    *content = std::move(*result);
    return content->size() > largestFile ? FileState::TooLarge : FileState::Read;
}

// Whether entities are declared, in ASCII or with the NULs that UTF-16 and UTF-32 put
// between. The XML reader bounds the text that one reference gives, but not what many of
// them give, nor how often those that stand for nothing are expanded.
bool declaresEntities(QByteArray content)
{
    return content.replace('\0', "").contains("<!ENTITY");
}

// Whether the document is in an encoding that every Qt knows. Those that some know
// besides may spell a declaration in other bytes. Reads the start of the document.
bool hasCommonEncoding(QXmlStreamReader& reader)
{
    reader.readNext();
    const QByteArray name = reader.documentEncoding().toLatin1();
    return name.isEmpty() || QStringConverter::encodingForName(name.constData()).has_value();
}

// The attributes of the root element when it is a session; none when it is
// something else. Reads to the end.
FileState readDocument(QXmlStreamReader& reader, QXmlStreamAttributes* attributes)
{
    reader.setNamespaceProcessing(false);
    FileState state = FileState::NoSession;
    bool atRoot = true;
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && atRoot) {
            atRoot = false;
            if (reader.qualifiedName() == TAGNAME) {
                *attributes = reader.attributes();
                state = FileState::Read;
            }
        }
    }
    return reader.hasError() ? FileState::NotWellFormed : state;
}

bool isOfToday(const QString& fileName)
{
    return QFileInfo(fileName).lastModified().date() == QDate::currentDate();
}

} // namespace

UserData::UserData()
    : port(0)
    , mSession(-1)
    , mExplicitPort(false)
    , mUseSessionCookies(true)
    , metaSession(false)
{
}

bool UserData::load(const QString& fileName, const QString& xml)
{
    mSessionFileName = fileName;
    QByteArray content = xml.toUtf8();
    mFileState = xml.isNull() ? readFile(fileName, &content) : FileState::Read;
    QXmlStreamAttributes attributes;
    if (mFileState == FileState::Read) {
        QXmlStreamReader reader;
        if (xml.isNull()) {
            reader.addData(content);
        } else {
            reader.addData(xml);
        }
        const bool readable =
            !declaresEntities(content) && (!xml.isNull() || hasCommonEncoding(reader));
        mFileState = readable ? readDocument(reader, &attributes) : FileState::NotWellFormed;
    }
    if (mFileState == FileState::Read) {
        mFileState = takeAttributes(attributes);
    }
    return mFileState == FileState::Read || mFileState == FileState::NoSession ||
           (mFileState == FileState::NotWellFormed && !xml.isNull());
}

UserData::FileState UserData::takeAttributes(const QXmlStreamAttributes& attributes)
{
    bool ok = true;
    if (attributes.hasAttribute(XML_PORT)) {
        port = attributes.value(XML_PORT).toUInt(&ok);
        took(Port);
        if (!ok) {
            return FileState::BadPort;
        }
        mExplicitPort = mExplicitPort || isOfToday(mSessionFileName);
    }
    if (attributes.hasAttribute(XML_HOST)) {
        hostNamesAndAddresses = attributes.value(XML_HOST).toString().split(QLatin1Char(','));
        took(Hosts);
    }
    if (attributes.hasAttribute(XML_SESSION_COOKIE)) {
        mSessionCookie = attributes.value(XML_SESSION_COOKIE).toString();
        took(Cookie);
    }
    if (attributes.hasAttribute(XML_SESSION)) {
        mSession = static_cast<qint32>(attributes.value(XML_SESSION).toUInt(&ok));
        took(Session);
    }
    return ok ? FileState::Read : FileState::BadSession;
}

QStringList UserData::getHostNamesAndAddresses() const
{
    return hostNamesAndAddresses;
}

QString UserData::getCanonicalHostName() const
{
    return hostNamesAndAddresses.value(0);
}

unsigned int UserData::getPort() const
{
    return port;
}

bool UserData::isExplicitPort() const
{
    return mExplicitPort;
}

int UserData::getSession() const
{
    return mSession;
}

QString UserData::sessionCookie() const
{
    return mSessionCookie;
}

bool UserData::getUseSessionCookies() const
{
    return mUseSessionCookies;
}

QString UserData::sessionFileName() const
{
    return mSessionFileName;
}

void UserData::setSharedDirectory(const QString& directory)
{
    mSharedDirectory = directory;
}

QString UserData::getSharedDirectory() const
{
    return mSharedDirectory;
}

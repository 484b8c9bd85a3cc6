// The session record and the session file that it is read from.

#include "backend/userdata.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/processhelpers.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A session file is one element of a few hundred bytes.
constexpr qsizetype largestFile = 1024 * 1024;

// The content of a file; null when it cannot be read, is no regular file or is
// too large. A FIFO is not waited for, whatever takes the file's place.
QByteArray readRegularFile(const QString& fileName)
{
    const int fd = sc_open(QFile::encodeName(fileName).constData(),
                           O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1) {
        return QByteArray();
    }
    struct stat status;
    const bool readable =
        fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= largestFile;
    // One byte more than may be there shows a file that has grown.
    QByteArray content(readable ? largestFile + 1 : 0, Qt::Uninitialized);
    qsizetype length = 0;
    ssize_t count = readable ? 1 : -1;
    while (count > 0 && length < content.size()) {
        count = read(fd, content.data() + length, static_cast<size_t>(content.size() - length));
        if (count > 0) {
            length += count;
        } else if (count == -1 && errno == EINTR) {
            count = 1;
        }
    }
    sc_close(fd);
    if (count == -1 || length > largestFile) {
        return QByteArray();
    }
    content.truncate(length);
    return content;
}

// The attributes of the root element when it is a session; none when it is
// something else. Reads to the end: false for what is not well-formed.
bool readDocument(QXmlStreamReader& reader, QXmlStreamAttributes* attributes)
{
    reader.setNamespaceProcessing(false);
    bool atRoot = true;
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && atRoot) {
            atRoot = false;
            if (reader.qualifiedName() == TAGNAME) {
                *attributes = reader.attributes();
            }
        }
    }
    return !reader.hasError();
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
    QXmlStreamAttributes attributes;
    if (!xml.isNull()) {
        QXmlStreamReader reader(xml);
        if (!readDocument(reader, &attributes)) {
            return true;
        }
    } else {
        QXmlStreamReader reader(readRegularFile(fileName));
        if (!readDocument(reader, &attributes)) {
            return false;
        }
    }
    return takeAttributes(attributes);
}

bool UserData::takeAttributes(const QXmlStreamAttributes& attributes)
{
    bool ok = true;
    if (attributes.hasAttribute(XML_PORT)) {
        port = attributes.value(XML_PORT).toUInt(&ok);
        if (!ok) {
            return false;
        }
        mExplicitPort = mExplicitPort || isOfToday(mSessionFileName);
    }
    if (attributes.hasAttribute(XML_HOST)) {
        hostNamesAndAddresses = attributes.value(XML_HOST).toString().split(QLatin1Char(','));
    }
    if (attributes.hasAttribute(XML_SESSION_COOKIE)) {
        mSessionCookie = attributes.value(XML_SESSION_COOKIE).toString();
    }
    if (attributes.hasAttribute(XML_SESSION)) {
        mSession = static_cast<qint32>(attributes.value(XML_SESSION).toUInt(&ok));
    }
    return ok;
}

bool UserData::isValid() const
{
    return !hostNamesAndAddresses.isEmpty() && port < 65536;
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

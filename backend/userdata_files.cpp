#include "backend/userdata.h"

#include "branding/filenames.h"
#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/replace.h"
#include "common/compatibility_simple/system/hostname.h"
#include "common/env/zorvenv.h"
#include "common/talvoraglobals.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

// If this file exists beside the programs, session files are local to the host.
const QString LOCAL_ONLY_FILENAME = QStringLiteral("use_local_zorv_session");
const QString FILENAME = QStringLiteral(".zorv_session");

QString joined(const QString& directory, const QString& name)
{
    return directory + QLatin1Char('/') + name;
}

void removeFile(const QString& path)
{
    sc_unlink(QFile::encodeName(path).constData());
}

// Does not create `base`, as QDir::mkpath() would.
void makeDirectories(const QString& base)
{
    const QDir directory(base);
    directory.mkdir(FileName::suiteDotConfigDir);
    directory.mkdir(joined(FileName::suiteDotConfigDir, QStringLiteral("session")));
}

QString userName()
{
    return qEnvironmentVariable(qEnvironmentVariableIsSet("LOGNAME") ? "LOGNAME" : "USER");
}

// The front end computes the same hash: that of the symbol tables in the System V ABI, over
// UTF-16 code units.
quint32 cookieHash(const QString& cookie)
{
    quint32 hash = 0;
    for (const QChar c : cookie) {
        hash = (hash << 4) + c.unicode();
        hash ^= (hash & 0xf0000000U) >> 23;
        hash &= 0x0fffffffU;
    }
    return hash;
}

// The path of a job's own copy of the file in TMPDIR. Null when there is none or the file is
// about to be created.
QString existingCopy(const QString& name, bool create)
{
    if (create || !qEnvironmentVariableIsSet("TMPDIR")) {
        return QString();
    }
    const QString candidate = QDir(QFile::decodeName(qgetenv("TMPDIR"))).filePath(name);
    return QFile::exists(candidate) ? candidate : QString();
}

} // namespace

QString UserData::getSessionDirectory(const QString& sharedDirectory, bool create)
{
    QString sessionPath = envPath("SESSION_PATH");
    if (!sessionPath.isEmpty()) {
        return sessionPath;
    }
    const QString base = sharedDirectory.isEmpty() ? QDir::homePath() : sharedDirectory;
    if (create) {
        makeDirectories(base);
    }
    return joined(joined(base, FileName::suiteDotConfigDir), QStringLiteral("session"));
}

QString UserData::getSessionFile(int session, bool create) const
{
    const QString number = QString::number(session);
    if (QFile::exists(joined(TalvoraGlobals::instance()->binPath(), LOCAL_ONLY_FILENAME))) {
        return QStringLiteral("/tmp/") + FILENAME + QLatin1Char('_') + userName() +
               QLatin1Char('_') + number;
    }
    const QString directory = getSessionDirectory(create);
    const QString host = getCanonicalHostName();
    QString latest = joined(directory, QStringLiteral("latest"));
    QString hostLatest = joined(directory, host + QStringLiteral("-latest"));
    if (!create && host.isEmpty()) {
        return latest;
    }
    if (!create && session < 1) {
        return hostLatest;
    }
    QString fileName = joined(directory, host + QLatin1Char('-') + number);
    if (create) {
        replaceLink(fileName, latest);
        replaceLink(fileName, hostLatest);
    }
    return fileName;
}

QString UserData::getGlobalFile() const
{
    return TalvoraGlobals::instance()->installPath() + QStringLiteral("/session");
}

QString UserData::getRestartFileName(const QString& suffix) const
{
    QString name = QStringLiteral("restart");
    if (!suffix.isNull()) {
        name += QLatin1Char('-') + suffix;
    }
    return QDir(getSessionDirectory(false)).filePath(name);
}

QString UserData::getSessionUniqueId() const
{
    QString id = getCanonicalHostName() + QLatin1Char('-') + QString::number(mSession);
    if (mUseSessionCookies && !mSessionCookie.isNull()) {
        id += QStringLiteral("-%1").arg(cookieHash(mSessionCookie), 8, 16, QLatin1Char('0'));
    }
    return id;
}

QString UserData::getSessionSpecificFileName(const QString& name) const
{
    return name + QLatin1Char('-') + getSessionUniqueId();
}

QString UserData::topologyFileName(bool create) const
{
    const QString name = getSessionSpecificFileName(QStringLiteral("topology"));
    const QString copy = existingCopy(name, create);
    return copy.isNull() ? joined(getSessionDirectory(create), name) : copy;
}

QString UserData::tarballFileName(bool create) const
{
    if (!mTarballFileName.isNull()) {
        return mTarballFileName;
    }
    const QString name = getSessionSpecificFileName(QStringLiteral("tarball"));
    QString copy = existingCopy(name, create);
    if (!copy.isNull()) {
        return copy;
    }
    mTarballFileName = joined(getSessionDirectory(create), name);
    return mTarballFileName;
}

QString UserData::hostFileName() const
{
    return joined(getSessionDirectory(true), getSessionSpecificFileName(QStringLiteral("hosts")));
}

QString UserData::getLockFileName(const QString& prefix, const QString& hostName) const
{
    return getSessionSpecificFileName(prefix) + QLatin1Char('-') +
           (hostName.isNull() ? sc_hostname() : hostName) + QStringLiteral(".pid");
}

bool UserData::makeMetaSession()
{
    if (metaSession || mSessionFileName.isEmpty()) {
        return metaSession;
    }
    const QString link = joined(getSessionDirectory(false), QStringLiteral("meta"));
    metaSession = replaceLink(mSessionFileName, link);
    return metaSession;
}

void UserData::deleteSessionFile()
{
    if (!mSessionFileName.isEmpty()) {
        removeFile(mSessionFileName);
        const QDir directory = QFileInfo(mSessionFileName).dir();
        removeFile(directory.filePath(QStringLiteral("latest")));
        // With a slash in the name, the path could be in another directory.
        const QString host = getCanonicalHostName();
        if (!hostNamesAndAddresses.isEmpty() && !host.contains(QLatin1Char('/'))) {
            removeFile(directory.filePath(host + QStringLiteral("-latest")));
        }
    }
    if (metaSession) {
        removeFile(joined(getSessionDirectory(false), QStringLiteral("meta")));
    }
}

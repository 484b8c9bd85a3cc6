#include "mpirun-info/restartfiles.h"

#include "mpirun-info/report.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/files/existence.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isPermitted(const QString& path, int mode)
{
    return faccessat(AT_FDCWD, QFile::encodeName(path).constData(), mode, AT_EACCESS) == 0;
}

void describeFile(Report* report, const char* key, const RestartFile& file, const char* effect)
{
    const bool exists = file.exists;
    report->add(key, objectOf({{"path", file.path},
                               {"exists", exists},
                               {"ageSeconds", exists ? QJsonValue(file.age) : QJsonValue()},
                               {"owner", exists ? QJsonValue(file.owner) : QJsonValue()},
                               {"effect", exists ? QLatin1String(effect) : QJsonValue()}}));
}

void findLeftFiles(Report* report, const RestartFiles& files)
{
    const auto find = [&](Finding finding, const RestartFile& file) {
        report->find(finding, "remove %1, which is %2 old", file.path, ageText(file.age));
    };
    if (files.hold.exists) {
        find(Finding::HoldFileLeft, files.hold);
    }
    if (files.request.exists) {
        const bool canHold =
            files.hold.exists || errorOfNewFileIn(QFileInfo(files.hold.path).path()) == 0;
        find(canHold ? Finding::RestartFileLeft : Finding::RestartFileStuck, files.request);
    }
    if (files.marker.exists && files.marker.isRefused()) {
        report->find(Finding::MarkerForeign, "%1, of user %2", files.marker.path,
                     files.marker.owner);
    }
}

} // namespace

RestartFile::RestartFile(const QString& filePath)
    : path(filePath)
{
    struct stat status;
    if (existenceOf(path).exists && stat(QFile::encodeName(path).constData(), &status) == 0) {
        exists = true;
        age = std::max<qint64>(time(nullptr) - status.st_mtime, 0);
        owner = status.st_uid;
        isOverwritable = S_ISREG(status.st_mode) || S_ISCHR(status.st_mode);
    }
}

bool RestartFile::isRefused() const
{
    struct stat directory;
    const QByteArray name = QFile::encodeName(QFileInfo(path).path());
    const bool isShared =
        stat(name.constData(), &directory) == 0 && (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    const bool isTrusted =
        owner == geteuid() || owner == 0 || (isShared && owner == directory.st_uid);
    return !isOverwritable || !isPermitted(path, W_OK) || (isShared && !isTrusted);
}

RestartFiles::RestartFiles(const BackendUserData& session)
    : marker(session.getRestartFileName(QStringLiteral("supported")))
    , request(session.getRestartFileName(QString()))
    , hold(session.getRestartFileName(QStringLiteral("hold")))
{
}

QString ageText(qint64 seconds)
{
    if (seconds / 86400 >= 2) {
        return filled("%1 days", seconds / 86400);
    }
    if (seconds / 3600 >= 2) {
        return filled("%1 h", seconds / 3600);
    }
    return seconds / 60 >= 2 ? filled("%1 min", seconds / 60) : filled("%1 s", seconds);
}

void describeRestartFiles(Report* report, const BackendUserData& session)
{
    const RestartFiles files(session);
    const auto describe = [&](const char* key, const RestartFile& file, const char* effect) {
        describeFile(report, key, file, session.isValid() ? effect : "ignored without a session");
    };
    describe("supportedMarker", files.marker,
             files.marker.isRefused() ? "the next launch cannot empty it"
                                      : "the next launch empties it");
    describe("restartFile", files.request, "the next launch starts its helper again");
    describe("holdFile", files.hold, "the next launch waits while it exists");
    if (session.isValid()) {
        findLeftFiles(report, files);
    }
}

int errorOfNewFileIn(const QString& directory)
{
    return isPermitted(directory, W_OK | X_OK) ? 0 : errno;
}

#include "common/compatibility_simple/files/obstacle.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <sys/stat.h>

namespace {

// The errno of stat(2) for a path, or 0.
int errorOf(const QString& path)
{
    struct stat status;
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? 0 : errno;
}

bool isLink(const QString& path)
{
    struct stat status;
    return lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISLNK(status.st_mode);
}

// `parent` is the longest part of `path` that could be looked up.
QString textOf(int error, const QString& path, const QString& parent)
{
    switch (error) {
    case ENOENT:
        return path + (isLink(path) ? QStringLiteral(" is a link that leads nowhere")
                                    : QStringLiteral(" does not exist"));
    case ENOTDIR:
        return parent + QStringLiteral(" is not a directory");
    case EACCES:
        return isLink(path) ? path + QStringLiteral(" is a link to a path that you may not search")
                            : QStringLiteral("no permission to search ") + parent;
    default:
        return QStringLiteral("%1: %2").arg(path, qt_error_string(error));
    }
}

} // namespace

QString obstacleOn(const QString& path)
{
    // QDir::cleanPath() would resolve ".." without following links.
    const QString absolute = QDir::isAbsolutePath(path) ? path : QStringLiteral("./") + path;
    QString parent = QStringLiteral("/");
    for (qsizetype end = absolute.indexOf(QLatin1Char('/'), 1);;
         end = absolute.indexOf(QLatin1Char('/'), end + 1)) {
        const QString part = absolute.left(end == -1 ? absolute.size() : end);
        if (const int error = errorOf(part)) {
            return textOf(error, part, parent);
        }
        if (end == -1) {
            return QString();
        }
        parent = part;
    }
}

#include "mpirun-info/mounts.h"

#include <QFile>

#include <mntent.h>

Mount mountOf(const QString& path)
{
    Mount mount;
    FILE* const table = setmntent("/proc/self/mounts", "re");
    while (const mntent* const entry = table ? getmntent(table) : nullptr) {
        const QString point = QFile::decodeName(entry->mnt_dir);
        const bool isAbove = point == QLatin1String("/") || path == point ||
                             path.startsWith(point + QLatin1Char('/'));
        // A later mount hides an earlier one at the same point.
        if (isAbove && point.size() >= mount.point.size()) {
            mount = {point, QString::fromLatin1(entry->mnt_type),
                     QFile::decodeName(entry->mnt_fsname), QFile::decodeName(entry->mnt_opts)};
        }
    }
    if (table) {
        endmntent(table);
    }
    return mount;
}

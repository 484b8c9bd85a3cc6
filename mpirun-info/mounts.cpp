#include "mpirun-info/mounts.h"

#include "mpirun-info/request.h"

#include <QByteArray>
#include <QFile>
#include <QList>

namespace {

// Blanks and backslashes are written as "\040".
QString unescaped(const QByteArray& field)
{
    QByteArray text;
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size()) {
            text += char(field.mid(i + 1, 3).toInt(nullptr, 8));
            i += 3;
        } else {
            text += field.at(i);
        }
    }
    return QFile::decodeName(text);
}

bool isBelow(const QString& path, const QString& point)
{
    return point == QLatin1String("/") || path == point ||
           path.startsWith(point + QLatin1Char('/'));
}

} // namespace

Mount mountOf(const QString& path)
{
    Mount mount;
    const QList<QByteArray> lines = systemFile(QStringLiteral("/proc/self/mountinfo")).split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf("-");
        if (separator < 6 || fields.size() < separator + 4) {
            continue;
        }
        const QString point = unescaped(fields.at(4));
        // A later mount hides an earlier one at the same point.
        if (isBelow(path, point) && point.size() >= mount.point.size()) {
            mount = {point, QString::fromLatin1(fields.at(separator + 1)),
                     unescaped(fields.at(separator + 2)),
                     unescaped(fields.at(5) + ',' + fields.at(separator + 3))};
        }
    }
    return mount;
}

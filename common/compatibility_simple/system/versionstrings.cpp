#include "common/compatibility_simple/system/versionstrings.h"

#include "common/env/zorvenv.h"
#include "version/hgid.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

namespace {

// A part that begins with a digit and has more characters is a date stamp.
constexpr qsizetype longestNumber = 4;

QString orUnknown(const char* text)
{
    return *text ? QString::fromLatin1(text) : QStringLiteral("<unknown>");
}

bool isDateStamp(const QString& part)
{
    return part.size() > longestNumber && part.at(0) >= QLatin1Char('0') &&
           part.at(0) <= QLatin1Char('9');
}

} // namespace

QString sc_version()
{
    const QString given = envString("VERSION");
    return given.isNull() ? orUnknown(ZORV_VERSION) : given;
}

QString sc_releaseVersion()
{
    QString given = envString("RELEASE_VERSION");
    if (given.isNull()) {
        given = envString("VERSION");
    }
    return given.isNull() ? orUnknown(ZORV_RELEASE_VERSION) : given;
}

QString sc_versionForCompatibility(int revision)
{
    return sc_versionForCompatibility_private(sc_version(), revision);
}

QString sc_versionForCompatibility_private(const QString& version, int revision)
{
    static const QRegularExpression previewPattern(QStringLiteral("-preview(\\d+)"));
    const QString preview = previewPattern.match(version).captured(1);

    QStringList parts = version.section(QLatin1Char('-'), 0, 0).split(QLatin1Char('.'));
    parts.erase(std::remove_if(parts.begin(), parts.end(), isDateStamp), parts.end());
    if (parts.size() == 3 && parts.at(2).toInt() > 0) {
        parts.removeLast();
    }
    QString key = parts.join(QLatin1Char('.'));
    if (!preview.isEmpty()) {
        key += QLatin1String("preview") + preview;
    }
    return key + QLatin1Char('$') + QString::number(revision);
}

#include "mpirun-info/findings.h"

#include "mpirun-info/report.h"

#include <QJsonDocument>

namespace {

constexpr FindingText table[] = {
#define FINDING(name, code, severity, meaning, remedy) {code, Severity::severity, meaning, remedy},
#include "mpirun-info/findings.def"
#undef FINDING
};

} // namespace

const FindingText& findingAt(int finding)
{
    return table[finding];
}

const char* nameOf(Severity severity)
{
    switch (severity) {
    case Severity::Error:
        return "error";
    case Severity::Warning:
        return "warning";
    case Severity::Unknown:
        break;
    }
    return "unknown";
}

QByteArray allFindings(bool json)
{
    QByteArray text;
    QJsonArray array;
    for (const FindingText& row : table) {
        const char* const severity = nameOf(row.severity);
        text += QByteArray(row.code) + " (" + severity + ")\n    " + row.meaning + "\n    " +
                row.remedy + '\n';
        array.append(objectOf({{"code", QLatin1String(row.code)},
                               {"severity", QLatin1String(severity)},
                               {"meaning", QLatin1String(row.meaning)},
                               {"remedy", QLatin1String(row.remedy)}}));
    }
    return json ? QJsonDocument(array).toJson() : text;
}

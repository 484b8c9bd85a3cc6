// Any command line: nothing is invented, and quoting brings every argument back.

#include "common/mlib.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString text = QString::fromUtf8(bytes);
    const QStringList arguments = parseArgs(text);
    QString quoted;
    qsizetype total = 0;
    for (QString argument : arguments) {
        total += argument.size();
        argument.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
        argument.replace(QLatin1Char('"'), QLatin1String("\\\""));
        quoted += QLatin1Char('"') + argument + QLatin1String("\" ");
    }
    if (total > text.size() || parseArgs(quoted) != arguments) {
        abort();
    }
    m_strfreev(m_strsplit(bytes.constData(), ","));
    return 0;
}

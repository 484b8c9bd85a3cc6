#pragma once

#include <QString>
#include <QStringList>

namespace ProcessHelpers {

/// sc_helper_exec() with another time limit.
QStringList outputLines(const QString& command, bool merge, bool quiet, const QString& inputFile,
                        int limitMs);

} // namespace ProcessHelpers

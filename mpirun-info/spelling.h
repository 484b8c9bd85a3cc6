// Slips of the pen.

#pragma once

#include <QString>
#include <QStringList>

/// The word of the list that is nearest to `word`, letter case apart; null when none is
/// within `mostSlips` letters that are missing, too many, wrong or in each other's place.
QString nearestSpelling(const QString& word, const QStringList& known, int mostSlips = 2);

// Suggestions for misspelt words.

#pragma once

#include <QString>
#include <QStringList>

/// The word of the list that is nearest to `word`, ignoring case. Null if none is within
/// `mostSlips` mistakes: a missing, additional, wrong or swapped letter each.
QString nearestSpelling(const QString& word, const QStringList& known, int mostSlips = 2);

// Suggestions for misspelt words.

#include "mpirun-info/sections.h"

#include <algorithm>

namespace {

// Whether one word becomes the other with at most `slips` mistakes (Damerau and Levenshtein,
// optimal alignment).
bool isNear(QStringView a, QStringView b, int slips)
{
    const auto [aRest, bRest] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    a = QStringView(aRest, a.end());
    b = QStringView(bRest, b.end());
    if (slips == 0 || (a.isEmpty() && b.isEmpty())) {
        return a.isEmpty() && b.isEmpty();
    }
    const bool isSwap = a.size() > 1 && b.size() > 1 && a[0] == b[1] && a[1] == b[0];
    return isNear(a.mid(1), b, slips - 1) || isNear(a, b.mid(1), slips - 1) ||
           isNear(a.mid(1), b.mid(1), slips - 1) ||
           (isSwap && isNear(a.mid(2), b.mid(2), slips - 1));
}

} // namespace

QString nearestSpelling(const QString& word, const QStringList& known, int mostSlips)
{
    for (int slips = 0; slips <= mostSlips; ++slips) {
        for (const QString& candidate : known) {
            if (isNear(word.toLower(), candidate.toLower(), slips)) {
                return candidate;
            }
        }
    }
    return QString();
}

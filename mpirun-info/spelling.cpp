#include "mpirun-info/spelling.h"

#include <algorithm>
#include <vector>

namespace {

// The number of slips between two words (Damerau and Levenshtein, optimal alignment).
int distance(const QString& a, const QString& b)
{
    const auto columns = size_t(b.size()) + 1;
    std::vector<std::vector<int>> slips(size_t(a.size()) + 1, std::vector<int>(columns));
    for (size_t i = 0; i < slips.size(); ++i) {
        for (size_t j = 0; j < columns; ++j) {
            if (i == 0 || j == 0) {
                slips[i][j] = int(i + j);
                continue;
            }
            const QChar x = a.at(qsizetype(i) - 1);
            const QChar y = b.at(qsizetype(j) - 1);
            slips[i][j] = std::min(
                {slips[i - 1][j] + 1, slips[i][j - 1] + 1, slips[i - 1][j - 1] + (x == y ? 0 : 1)});
            if (i > 1 && j > 1 && x == b.at(qsizetype(j) - 2) && a.at(qsizetype(i) - 2) == y) {
                slips[i][j] = std::min(slips[i][j], slips[i - 2][j - 2] + 1);
            }
        }
    }
    return slips.back().back();
}

} // namespace

QString nearestSpelling(const QString& word, const QStringList& known, int mostSlips)
{
    QString nearest;
    int fewest = mostSlips + 1;
    for (const QString& candidate : known) {
        const int slips = distance(word.toLower(), candidate.toLower());
        if (slips < fewest) {
            fewest = slips;
            nearest = candidate;
        }
    }
    return nearest;
}

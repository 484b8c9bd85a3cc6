#pragma once

#include "backend/options.h"

#include <algorithm>
#include <variant>

/// A row of an option table: one option of the parser class P. The first row of a table with
/// a matching spelling counts.
template <typename P> struct OptionRow
{
    /// The spelling that is always accepted.
    const char* name;
    /// The spellings that are accepted in simple-arguments mode only, separated by blanks.
    const char* simpleNames;
    /// The member that the option sets. A bool option has no value and sets true. The value
    /// of a QString option must not be empty. That of an int option must be a decimal number;
    /// otherwise the member becomes 0.
    std::variant<bool P::*, QString P::*, int P::*> member;
    /// Whether the option and its value are passed on to further processes.
    bool forwarded = false;
    /// Called after the member is set, or null.
    void (P::*effect)(bool isLastArgument) = nullptr;

    /// Whether the option has this spelling; `simple` is for simple-arguments mode.
    bool matches(const QString& option, bool simple) const
    {
        return option == QLatin1String(name) ||
               (simple && QString::fromLatin1(simpleNames)
                              .split(QLatin1Char(' '), Qt::SkipEmptyParts)
                              .contains(option));
    }
};

/// Parses the option at `it` and its value by a table, as Options::parseOption() does. Appends
/// an option that is passed on to `forwarded`, which may be null if no row is forwarded.
template <typename P, std::size_t Size>
Options::ParseResult parseByTable(const OptionRow<P> (&table)[Size], P* parser, QString option,
                                  QStringList::const_iterator& it, QStringList::const_iterator end,
                                  QStringList* forwarded)
{
    const bool simple = parser->isSimpleArguments();
    const auto* row =
        std::find_if(std::begin(table), std::end(table),
                     [&](const OptionRow<P>& entry) { return entry.matches(option, simple); });
    if (row == std::end(table)) {
        return Options::Unrecognised;
    }
    QStringList canonical(QString::fromLatin1(row->name));
    if (auto* const flag = std::get_if<bool P::*>(&row->member)) {
        parser->** flag = true;
    } else if (++it == end) {
        return Options::Missing;
    } else if (auto* const number = std::get_if<int P::*>(&row->member)) {
        bool ok = false;
        parser->** number = it->toInt(&ok);
        if (!ok) {
            return Options::Invalid;
        }
        canonical += QString::number(parser->**number);
    } else {
        if (it->isEmpty()) {
            return Options::Invalid;
        }
        parser->*std::get<QString P::*>(row->member) = *it;
        canonical += *it;
    }
    if (row->forwarded) {
        *forwarded += canonical;
    }
    if (row->effect) {
        (parser->*row->effect)(it + 1 == end);
    }
    return Options::Ok;
}

// Option tables: what most of a command-line parser is made of.

#pragma once

#include "backend/options.h"

#include <algorithm>
#include <variant>

/// One option of the parser class P. Tables are looked through in order, and
/// the first row that has the spelling decides.
template <typename P> struct OptionRow
{
    /// The spelling that is accepted always.
    const char* name;
    /// Those that are accepted in simple-arguments mode only, with blanks
    /// between them.
    const char* simpleNames;
    /// What the option sets. A bool takes no value and becomes true; a QString
    /// takes a text that is not empty; an int takes a decimal number, and
    /// becomes 0 when there is none.
    std::variant<bool P::*, QString P::*, int P::*> member;
    /// Whether the option, with its value, travels on to further processes.
    bool forwarded = false;
    /// What else the option does, once its member is set.
    void (P::*effect)(bool isLastArgument) = nullptr;

    bool matches(const QString& option, bool simple) const
    {
        return option == QLatin1String(name) ||
               (simple && QString::fromLatin1(simpleNames)
                              .split(QLatin1Char(' '), Qt::SkipEmptyParts)
                              .contains(option));
    }
};

/// Takes the option at `it`, with its value, by a table; options that travel on
/// are appended to `forwarded`. As Options::parseOption().
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

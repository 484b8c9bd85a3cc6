// What the campaigns share.

#pragma once

#include <iterator>
#include <string>

/// A random number from 0 to `count` - 1.
long pick(long count);

template <typename List> const auto& pickFrom(const List& list)
{
    return *(std::begin(list) + pick(long(std::size(list))));
}

/// Prints and counts what was wrong with the trial that runs.
void wrong(const char* kind, const std::string& what);

/// One trial of the mode "sessionfiles".
void trySessionFile(long number);

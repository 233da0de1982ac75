#ifndef TEXT_H
#define TEXT_H

#include "utlib/UtString.h"

#include <cstddef>
#include <string>

/// The same bytes as a standard string.
std::string str(const UtString& text);

/// The text on one line and safe to show: control characters become "\n", "\t" or "\x1b", bytes
/// that are no UTF-8 become "?".
std::string printable(const std::string& text);

/// The columns that UTF-8 text takes on a terminal.
std::size_t width(const std::string& text);

/// UTF-8 text cut to at most `columns` columns, with "…" at its end when something was cut off.
std::string cut(const std::string& text, std::size_t columns);

/// The same with "…" in the middle, for texts that differ at their ends, as paths do.
std::string cutMiddle(const std::string& text, std::size_t columns);

/// The word in single quotes, so that sh reads exactly these bytes back.
std::string shellQuoted(const std::string& word);

/// The word as it is when sh reads it as one plain word, otherwise in quotes.
std::string shellWord(const std::string& word);

#endif

#ifndef ZONUMBER_H
#define ZONUMBER_H

#include <climits>
#include <cstdlib>

/// The decimal number at the start of a text: white space is skipped, an optional sign and digits
/// are read, anything else ends it. A text without digits gives 0.
inline long long zoNumber(const char* text)
{
    return ::strtoll(text, nullptr, 10);
}

/// A number for a 32-bit field. One that does not fit gives 0: cut to size, it might be the process
/// id of somebody else.
inline int zoNarrow(long long number)
{
    return number < INT_MIN || number > INT_MAX ? 0 : (int)number;
}

/// zoNumber() for a 32-bit field.
inline int zoNumber32(const char* text)
{
    return zoNarrow(zoNumber(text));
}

#endif

#ifndef ZONUMBER_H
#define ZONUMBER_H

#include "utlib/UtString.h"

#include <climits>
#include <cstdlib>
#include <cstring>

static const long ZO_NUMBER_SIZE = 20;  ///< room for any number: a sign and 19 digits

/// Writes a number in decimal. Returns the place behind it.
inline char* zoPutNumber(char* to, long long number)
{
    char digits[ZO_NUMBER_SIZE];
    char* const end = digits + sizeof digits;
    char* p = end;
    unsigned long long rest = number < 0 ? 0ULL - (unsigned long long)number : number;
    do {
        *--p = (char)('0' + rest % 10);
    } while ((rest /= 10) > 0);
    if (number < 0)
        *--p = '-';
    ::memcpy(to, p, end - p);
    return to + (end - p);
}

inline void zoAppendNumber(UtString& text, long long number)
{
    char digits[ZO_NUMBER_SIZE];
    text.appendText(digits, zoPutNumber(digits, number) - digits);
}

/// Reads a number that begins at once and has at most 18 digits, and stops behind them: a digit
/// there means that it has more. Without digits it is 0.
inline long long zoTakeNumber(const char*& text)
{
    const bool isNegative = *text == '-';
    text += isNegative;
    const char* const most = text + 18;
    long long number = 0;
    while (*text >= '0' && *text <= '9' && text < most)
        number = 10 * number + (*text++ - '0');
    return isNegative ? -number : number;
}

/// The decimal number at the start of a text: white space is skipped, an optional sign and digits
/// are read, anything else ends it. A text without digits gives 0.
inline long long zoNumber(const char* text)
{
    const char* end = text;
    const long long number = zoTakeNumber(end);
    return *end ? ::strtoll(text, nullptr, 10) : number;
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

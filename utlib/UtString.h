#ifndef UTSTRING_H
#define UTSTRING_H

#include "utlib/UtDArray.h"
#include "utlib/UtHandle.h"

#include <cstdarg>

/// A text of bytes: an array of its characters and one terminating NUL, which is always there and
/// counts in size(). The characters are handed out as a pointer that is valid until the string is
/// next changed. In a printf-style call a string must be cast: `(const char*)path`.
class UTLIB_EXPORT UtString : public UtDArray<char>, public UtHandable
{
public:
    /// The empty text, with room for 15 characters.
    UtString();
    UtString(const UtString& other);
    UtString(const char* text);
    ~UtString() override;

    /// Copies the whole text, a NUL inside it too.
    UtString& operator=(const UtString& other);
    /// The text becomes a copy of the given one, which may lie inside this string; null gives the
    /// empty text.
    UtString& operator=(const char* text);

    /// Appends a text, which may lie inside this string; null appends nothing.
    UtString& operator+=(const char* text);
    UtString& operator+=(char c);
    /// Appends count bytes, which must not lie inside this string.
    void appendText(const char* bytes, long count);

    /// The text becomes the formatted one, of any length. The arguments must not point into this
    /// string. A format that cannot be carried out gives the empty text; a null pointer for a %s is
    /// "(null)", as the C library has it.
    void vprintf(const char* format, va_list arguments) UT_PRINTF(2, 0);

    /// 1 for different texts, 0 for equal ones; null differs from every string.
    int operator!=(const char* text) const;
    /// 1 for equal texts, else 0.
    int operator==(const char* text) const { return !(*this != text); }

    /// Number of characters, without the terminator.
    long length() const { return used - 1; }

    operator const char*() const { return data; }

private:
    /// The text becomes these bytes, of which the last one is the terminator.
    void assign(const char* bytes, long count);
};

#endif

#include "utlib/UtString.h"

#include <cstdio>
#include <cstring>

/// Room of a new string, the terminator included: short texts need one allocation.
static const long FIRST_CAPACITY = 16;

/// Room for most formatted texts. What does not fit is formatted a second time, and the C library
/// takes long over what it has to leave out.
static const long FORMAT_BUFFER = 1024;

UtString::UtString()
{
    data = (char*)utmalloc(FIRST_CAPACITY);
    allocated = FIRST_CAPACITY;
    used = 1;
    data[0] = '\0';
}

UtString::UtString(const UtString& other) : UtDArray<char>(), UtHandable()
{
    insertMemory(0, other.used);  // at least the terminator
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
    ::memcpy(data, other.data, other.used);
}

UtString::UtString(const char* text) : UtString()
{
    *this = text;
}

UtString::~UtString() = default;

UtString& UtString::operator=(const UtString& other)
{
    assign(other.data, other.used);
    return *this;
}

UtString& UtString::operator=(const char* text)
{
    if (!text)
        text = "";
    assign(text, (long)::strlen(text) + 1);
    return *this;
}

void UtString::assign(const char* bytes, long count)
{
    if (count > allocated) {  // bytes inside this string always fit
        used = 0;
        insertMemory(0, count);
    }
    ::memmove(data, bytes, count);
    used = count;
}

UtString& UtString::operator+=(const char* text)
{
    if (!text)
        return *this;
    const long n = (long)::strlen(text) + 1;
    const bool isInside = text >= data && text < data + used;
    const long offset = isInside ? text - data : 0;
    --used;
    insertMemory(used, n);
    ::memmove(data + used - n, isInside ? data + offset : text, n);
    return *this;
}

UtString& UtString::operator+=(char c)
{
    data[used - 1] = c;
    insertMemory(used, 1);
    data[used - 1] = '\0';
    return *this;
}

void UtString::appendText(const char* bytes, long count)
{
    --used;
    insertMemory(used, count + 1);
    ::memcpy(data + used - count - 1, bytes, count);
    data[used - 1] = '\0';
}

void UtString::vprintf(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    char buffer[FORMAT_BUFFER];
    // A copy, of any length: not through the buffer. The C library decides what a null pointer is.
    const char* const copied = ::strcmp(format, "%s") == 0 ? va_arg(again, const char*) : nullptr;
    const int length = copied ? 0 : ::vsnprintf(buffer, sizeof buffer, format, arguments);
    if (copied) {
        *this = copied;
    } else if (length < (int)sizeof buffer) {
        *this = length < 0 ? "" : buffer;
    } else {
        used = 0;
        insertMemory(0, (long)length + 1);
        ::vsnprintf(data, used, format, again);
    }
    va_end(again);
}

int UtString::operator!=(const char* text) const
{
    if (!text)
        return 1;
    return length() != (long)::strlen(text) || ::strcmp(data, text) != 0;
}

#include "utlib/UtStringTokenizer.h"

/// White space as the C locale has it, whatever locale a host application runs under.
static const char SPACE[] = " \t\n\v\f\r";

UtStringTokenizer::UtStringTokenizer(const char* givenText) : text(givenText)
{
}

UtStringTokenizer::~UtStringTokenizer() = default;

UtString& UtStringTokenizer::nextToken()
{
    token = "";
    if (!hasMoreTokens())
        return token;
    const bool isQuoted = text[position] == '"';
    position += isQuoted;
    const char* const start = (const char*)text + position;
    const long n = (long)::strcspn(start, isQuoted ? "\"" : SPACE);
    token.appendText(start, n);
    position += n;
    if (isQuoted && text[position])
        ++position;
    return token;
}

int UtStringTokenizer::hasMoreTokens()
{
    position += (long)::strspn((const char*)text + position, SPACE);
    return text[position] != '\0';
}

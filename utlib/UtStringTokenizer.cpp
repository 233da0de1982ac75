#include "utlib/UtStringTokenizer.h"

/// White space as the C locale has it, whatever locale a host application runs under.
static bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

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
    const long start = isQuoted ? ++position : position;
    while (text[position] && (isQuoted ? text[position] != '"' : !isSpace(text[position])))
        ++position;
    token.appendText((const char*)text + start, position - start);
    if (isQuoted && text[position])
        ++position;
    return token;
}

int UtStringTokenizer::hasMoreTokens()
{
    while (isSpace(text[position]))
        ++position;
    return text[position] != '\0';
}

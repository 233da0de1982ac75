#ifndef UTSTRINGTOKENIZER_H
#define UTSTRINGTOKENIZER_H

#include "utlib/UtString.h"

/// Splits a text into tokens separated by runs of white space. A token that begins with a double
/// quote runs to the next double quote, or to the end of the text if there is none, and is handed
/// out without its quotes; it may hold blanks and may be empty. There is no escaping.
class UTLIB_EXPORT UtStringTokenizer
{
public:
    /// Stands before the first token of a copy of the text; null counts as empty.
    explicit UtStringTokenizer(const char* text);
    virtual ~UtStringTokenizer();

    /// The next token, empty after the last one. The reference is valid until the next call: copy
    /// the token before asking for another.
    UtString& nextToken();

    /// 1 when at least one further token follows, else 0.
    int hasMoreTokens();

private:
    UtString text;
    UtString token;
    long position = 0;  ///< index in text of the first character not looked at
};

#endif

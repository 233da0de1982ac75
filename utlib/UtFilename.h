#ifndef UTFILENAME_H
#define UTFILENAME_H

#include "utlib/UtExport.h"

#include <QByteArray>

/// A file name. Copies share their text.
class UTLIB_EXPORT UtFilename
{
public:
    UtFilename() = default;

    UtFilename& operator=(const char* text);

    /// The name becomes the formatted text.
    void printf(const char* format, ...) UT_PRINTF(2, 3);

    /// Makes the file, empty, with exactly these permission bits. A symbolic link of that name is
    /// not followed. Returns 0, or -1 with errno set.
    int create(int mode) const;

    bool doesExist() const;

    /// Number of characters; 0 for the empty name.
    int length() const;

    /// Valid until the name is next changed.
    operator const char*() const { return text.constData(); }

private:
    QByteArray text;
};

#endif

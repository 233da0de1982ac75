#ifndef UTENVIRONMENT_H
#define UTENVIRONMENT_H

#include "utlib/UtExport.h"

#include <QString>

/// The environment of this process.
class UTLIB_EXPORT UtEnvironment
{
public:
    /// The value of a variable, taken as UTF-8; empty when it is not set. With isName true the
    /// value is a name or a path, and white space around it is dropped.
    static QString getValue(const QString& name, const bool& isName);
};

#endif

#include "utlib/UtEnvironment.h"

#include <cstdlib>

QString UtEnvironment::getValue(const QString& name, const bool& isName)
{
    const QString value = QString::fromUtf8(::getenv(name.toUtf8().constData()));
    return isName ? value.trimmed() : value;
}

#include "utlib/UtHandle.h"

UtHandable::~UtHandable() = default;

void UtHandable::notifyDelete()
{
    delete this;
}

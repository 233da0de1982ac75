#ifndef ZOIDENTITY_H
#define ZOIDENTITY_H

#include "schedule/ZoExport.h"
#include "utlib/UtString.h"

/// Who runs this process, and where. Server and client must arrive at the same names: every request
/// begins with the user name, and the host name is part of the queue file's name.
class SCHEDULE_EXPORT ZoIdentity
{
public:
    /// This machine's name: the resolver's official one, or as gethostname() gives it when that
    /// does not resolve. Never empty.
    static void hostName(UtString& name);

    /// Login name and home directory from the password database; for a user without an entry there,
    /// from the variables USER and HOME. Never empty: "user" and "/" stand in.
    static void userAndHome(UtString& user, UtString& home);
};

#endif

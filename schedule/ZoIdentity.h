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
    /// does not resolve. Never empty. A look-up that took more than a second is not repeated within
    /// a minute: a program that needs the name several times must not wait each time.
    static void hostName(UtString& name);

    /// Called after a look-up that took more than a second, with the name that was looked up, what
    /// was found, and the seconds; null: nobody is told. A program sets it once.
    static void (*onSlowLookup)(const char* name, const char* official, double seconds);

    /// Milliseconds that this thread's last look-up took if it was slow, else 0. Another process
    /// that looks up the name will take as long.
    static long long slowLookupTime();

    /// Login name and home directory from the password database; for a user without an entry there,
    /// from the variables USER and HOME. Never empty: "user" and "/" stand in.
    static void userAndHome(UtString& user, UtString& home);
};

#endif

#ifndef ACCOUNT_H
#define ACCOUNT_H

#include <string>
#include <sys/types.h>

/// What the password database says of a user. May be asked in any thread.
struct Account {
    std::string name;  ///< empty: there is no such user
    std::string home;

    explicit Account(uid_t user);
};

#endif

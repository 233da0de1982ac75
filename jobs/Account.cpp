#include "jobs/Account.h"

#include <cerrno>
#include <pwd.h>
#include <vector>

static const std::size_t FIRST_SIZE = 1024, LARGEST_SIZE = 1024 * 1024;  // bytes of an entry

Account::Account(uid_t user)
{
    struct passwd entry;
    struct passwd* found = nullptr;
    std::vector<char> texts(FIRST_SIZE);
    while (::getpwuid_r(user, &entry, texts.data(), texts.size(), &found) == ERANGE &&
           texts.size() < LARGEST_SIZE)
        texts.resize(2 * texts.size());
    if (!found)
        return;
    name = entry.pw_name ? entry.pw_name : "";
    home = entry.pw_dir ? entry.pw_dir : "";
}

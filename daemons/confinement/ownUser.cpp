#include "daemons/confinement/ownUser.h"

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemons/common/complain.h"
#include "lib/misc/owners.h"

namespace {

constexpr char USER[] = "harbrel";
constexpr char USERS[] = "/etc/passwd";

}  // namespace

OwnUser OwnUser_Find() {
    // The users of this host alone: a service that knows more of them would have to be loaded and asked.
    FileStream users(fopen(USERS, "re"));
    while (const passwd *entry = users != nullptr ? fgetpwent(users.get()) : nullptr) {
        if (strcmp(entry->pw_name, USER) == 0 && entry->pw_uid != 0) {
            return {entry->pw_uid, entry->pw_gid};
        }
    }
    if (users == nullptr || ferror(users.get()) != 0) {
        Complain("cannot read %s: %s: running as nobody", USERS, strerror(errno));
    } else {
        Complain("there is no user %s on this host: running as nobody", USER);
    }
    return {};
}

bool OwnUser_Become(const OwnUser &own) {
    if (prctl(PR_SET_KEEPCAPS, 1) != 0 || setgroups(0, nullptr) != 0 ||
        setresgid(own.group, own.group, own.group) != 0 || setresuid(own.user, own.user, own.user) != 0) {
        Complain("cannot become the user %u: %s", own.user, strerror(errno));
        return false;
    }
    return true;
}

#include "daemons/confinement/ownUser.h"

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "lib/misc/owners.h"

namespace {

constexpr char USER[] = "harbrel";

// The numbers of nobody and its group everywhere.
constexpr uid_t NOBODY = 65534;

struct Identity {
    uid_t user = NOBODY;
    gid_t group = NOBODY;
};

// The users of this host alone: a service that knows more of them would have to be loaded and asked.
bool Find(Identity *identity) {
    FileStream users(fopen("/etc/passwd", "re"));
    while (const passwd *entry = users != nullptr ? fgetpwent(users.get()) : nullptr) {
        if (strcmp(entry->pw_name, USER) == 0 && entry->pw_uid != 0) {
            *identity = {entry->pw_uid, entry->pw_gid};
            return true;
        }
    }
    return false;
}

}  // namespace

bool OwnUser_Become() {
    Identity identity;
    if (!Find(&identity)) {
        Complain("there is no user %s on this host: running as nobody", USER);
    }
    if (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 || setgroups(0, nullptr) != 0 ||
        setresgid(identity.group, identity.group, identity.group) != 0 ||
        setresuid(identity.user, identity.user, identity.user) != 0) {
        Complain("cannot become the user %u: %s", identity.user, strerror(errno));
        return false;
    }
    return true;
}

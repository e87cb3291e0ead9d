// The user whom the daemons belong to once they are set up.
#pragma once

#include <sys/types.h>

// The numbers of nobody and its group everywhere.
inline constexpr uid_t NOBODY = 65534;

struct OwnUser {
    uid_t user = NOBODY;
    gid_t group = NOBODY;
};

// The user and the group `harbrel`; where the host has no such user, nobody, after a line in the log.
OwnUser OwnUser_Find();

// Changes to them, without any other group. Permitted capabilities survive it, effective ones do not. False
// after a line in the log.
bool OwnUser_Become(const OwnUser &own);

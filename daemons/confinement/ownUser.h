// The user whom the daemons belong to once they are set up.
#pragma once

// Changes to the user and the group `harbrel` without any other group; where the host has no such user, to
// nobody after a line in the log. Permitted capabilities survive it, effective ones do not. False after a
// line in the log.
bool OwnUser_Become();

#include "daemons/confinement/confinement.h"

#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

#include "daemons/common/capabilities.h"
#include "daemons/common/complain.h"
#include "daemons/confinement/fileAccess.h"
#include "daemons/confinement/ownUser.h"
#include "daemons/confinement/systemCalls.h"

bool Confine(const Confinement &confinement) {
    // Found while its file can be read.
    OwnUser own = confinement.ownUser ? OwnUser_Find() : OwnUser();
    FileAccess_Restrict(confinement);
    bool whole = !confinement.ownUser || OwnUser_Become(own);
    if (!Capabilities_Keep(confinement.capabilities)) {
        Complain("cannot give capabilities up: %s", strerror(errno));
        whole = false;
    }
    // Nobody of the same user may look into it, whom guests' bytes may have turned hostile.
    prctl(PR_SET_DUMPABLE, 0);
#ifndef HARBREL_ALL_SYSTEM_CALLS
    if (!confinement.systemCalls.empty()) {
        SystemCalls_Restrict(confinement.systemCalls);
    }
#endif
    if (confinement.foreignProgram) {
        SystemCalls_RestrictForeign();
    }
    return whole;
}

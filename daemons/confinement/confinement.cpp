#include "daemons/confinement/confinement.h"

#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

#include "daemons/common/capabilities.h"
#include "daemons/common/complain.h"
#include "daemons/confinement/ownUser.h"

bool Confine(const Confinement &confinement) {
    bool whole = !confinement.ownUser || OwnUser_Become();
    if (!Capabilities_Keep(confinement.capabilities)) {
        Complain("cannot give capabilities up: %s", strerror(errno));
        whole = false;
    }
    // Nobody of the same user may look into it, which guests' bytes may have turned hostile.
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    return whole;
}

/* The public header by itself, as a C program sees it, against the shared library. */
#include "lib/harbrel/harbrel.h"

int main(void) {
    const char *value = 0;
    HBL_VnetFeatures features = {0};
    if (HBL_GetNumVnets() != 256 || HBL_VnetCfgGetAnswer("HBL_LOGLEVEL", &value) || value != 0) {
        return 1;
    }
    return HBL_GetVnetFeatures(&features) || HBL_GetServiceStatus("zelan8", HBL_SERVICE_NAT) != 0 ? 2 : 0;
}

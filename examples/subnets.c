/* Prints the subnet of every network that has one. Build: cc subnets.c $(pkg-config --cflags --libs harbrel)
 * Run it as root, which the library needs. */
#include <harbrel.h>
#include <stdio.h>

int main(void) {
    if (!HBL_Load()) return 1;
    for (uint32_t n = 0; n < HBL_GetNumVnets(); n++) {
        char name[20], subnet[16];
        uint32_t length = sizeof subnet;
        snprintf(name, sizeof name, "zelan%u", n);
        if (HBL_GetVnetSubnetAddr(name, subnet, &length)) printf("%s %s\n", name, subnet);
    }
    HBL_Unload();
    return 0;
}

// The host's network interfaces.
#pragma once

struct ifreq;

// ioctl(2) with a request that names an interface in ifr_name, on an IPv4 socket. The kernel starts modprobe
// twice, and waits for it, when it is asked for a name that no interface has; here that ends with ENODEV, as
// the kernel's own answer would, and nothing is started.
int NetInterface_Ioctl(int socketFd, unsigned long request, ifreq *interfaceRequest);

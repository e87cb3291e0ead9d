/* Which frames cross a cable, and in which direction: the rules that the programs in the kernel and the
 * copying process share. C, since the kernel's programs are.
 *
 * A cable joins the guests' side, which is the network's switch, and the adapter's side: the wire, and on the
 * adapter itself the host. Frames that a neighbour on the wire takes for the host's own link (spanning tree,
 * pause, bonding, discovery protocols) never cross. Tagged frames cross as they are, but a VLAN for which the
 * host has an interface on the adapter stays the host's, and so do tagged frames for the host's own address.
 */
#ifndef ZELAN_BRIDGE_FRAME_RULES_H
#define ZELAN_BRIDGE_FRAME_RULES_H

#include <linux/types.h>

/* Every program in the kernel is one function: what is not inlined, the loader could not find. */
#define FRAME_RULE static inline __attribute__((always_inline))

/* A hardware address as a number, the first byte lowest; as Ethernet counts, its lowest bit tells groups. */
FRAME_RULE __u64 Mac_Read(const __u8 *bytes) {
    return (__u64)bytes[0] | (__u64)bytes[1] << 8 | (__u64)bytes[2] << 16 | (__u64)bytes[3] << 24 |
           (__u64)bytes[4] << 32 | (__u64)bytes[5] << 40;
}

FRAME_RULE int Mac_IsGroup(__u64 mac) {
    return (mac & 1) != 0;
}

/* 01:80:c2:00:00:0X of IEEE 802.1D, which no bridge forwards, and 01:00:0c:cc:cc:cX of Cisco's protocols. */
FRAME_RULE int Mac_IsLinkControl(__u64 mac) {
    __u64 front = mac & 0xffffffffff;
    __u64 last = mac >> 40 & 0xf0;
    return (front == 0x000000c28001 && last == 0x00) || (front == 0xcccc0c0001 && last == 0xc0);
}

#define VLAN_COUNT 4096

/* One cable. */
struct CableRecord {
    __u64 token;   /* marks frames that our own programs have sent on; nobody else knows it */
    __u64 mac;     /* the adapter's own address */
    __u32 adapter; /* index of the interface */
    __u32 tap;     /* the same of its port on the switch */
    __u64 several; /* not 0 while the network has other cables */
    __u64 hostVlans[VLAN_COUNT / 64]; /* bit N: the host has an interface for VLAN N on the adapter */
};

/* What is judged of a frame. All of it in whole words: where a whole one was on the stack, older
 * kernels (Linux 6.1) take a smaller one for a corrupted pointer. */
struct FrameHead {
    __u64 to;
    __u64 from;
    __u64 vlan;   /* of the outer tag; 0 without one, or for one that gives a priority alone */
    __u64 nested; /* not 0: a tag hides behind one without a VLAN, which nobody sends in earnest */
};

FRAME_RULE int Frame_IsHostsVlan(const struct FrameHead *frame, const struct CableRecord *record) {
    __u64 vlan = frame->vlan & (VLAN_COUNT - 1);
    return frame->nested != 0 || (vlan != 0 && (record->hostVlans[vlan / 64] >> vlan % 64 & 1) != 0);
}

/* An address that has been heard as a sender. */
struct Sender {
    __u64 heard;  /* when last, in nanoseconds of a steady clock */
    __u64 isHost; /* not 0: it is an address of the host's own on the adapter, as that of a macvlan */
};

#define TO_GUESTS 1
#define TO_ADAPTER 2

/* After this time an address that was heard on the other side has moved there. Until then nobody knows: a
 * guest that has moved, or one that lies about its address. */
#define DOUBT_TIME 60000000000ULL

/* The sides to which frames for an address go, by when it was last heard there; 0 for never. In doubt it is
 * both, so that no guest draws what was for somebody else away from him. */
FRAME_RULE int Sides(__u64 heardFromGuests, __u64 heardFromAdapter) {
    if (heardFromGuests == heardFromAdapter) {
        return TO_GUESTS | TO_ADAPTER;
    }
    if (heardFromAdapter == 0 || (heardFromGuests > heardFromAdapter + DOUBT_TIME)) {
        return TO_GUESTS;
    }
    if (heardFromGuests == 0 || heardFromAdapter > heardFromGuests + DOUBT_TIME) {
        return TO_ADAPTER;
    }
    return TO_GUESTS | TO_ADAPTER;
}

/* Two adapters of the host may hang on one physical network. What leaves by one of them then comes back by
 * the other, and would draw the switch's idea of its sender away from him. Such a frame is told by being the
 * same: nobody can have others' frames suppressed but by sending them first himself. */
#define ECHO_TIME 2000000000ULL
#define SENT_FRAMES 4096
#define SENT_FRAME_BITS 12

struct SentFrame {
    __u64 print;
    __u64 sent; /* in nanoseconds */
};

/* The bytes that a print takes: addresses and the start of what is inside, to the checksum of a datagram,
 * which an adapter may fill in on the way, or to the end of an ARP message. A print is never 0. */
#define PRINT_BYTES 42
FRAME_RULE __u64 Frame_Print(const __u8 *head, __u64 vlan) {
    const int isArp = head[12] == 0x08 && head[13] == 0x06;
    const __u16 end = (__u16)(isArp ? head[40] << 8 | head[41] : 0);
    __u64 print = 0xcbf29ce484222325ULL ^ vlan ^ (__u64)end << 16;
    for (int i = 0; i < 5; i++) {
        __u64 word;
        __builtin_memcpy(&word, head + i * 8, sizeof word);
        print = (print ^ word) * 0x9e3779b97f4a7c15ULL;
        print ^= print >> 29;
    }
    return print | 1;
}

FRAME_RULE __u32 Frame_PrintPlace(__u64 print) {
    return (__u32)(print >> (64 - SENT_FRAME_BITS));
}

FRAME_RULE int Frame_IsEcho(const struct SentFrame *place, __u64 print, __u64 now) {
    return place->print == print && now - place->sent < ECHO_TIME;
}

#endif

/* The data path in the kernel: what each of a cable's three places does with a frame.
 *
 *     wire -> adapterIn -> the host's stack            guests -> switch -> tapOut -> wire, host, or both
 *                       \-> TAP -> switch -> guests    host's stack -> adapterOut -> wire, TAP, or both
 *
 * Everything that is sent on inside passes the adapter's other program as well and is told there by the
 * cable's token in the frame's control block. A verdict of TC_ACT_UNSPEC leaves the frame to its way, and to
 * the filters of others behind ours. */
#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/pkt_cls.h>

#include "daemons/zelan-bridge/frameRules.h"

#define PROGRAM(name) __attribute__((section(name), used)) int

static void *(*const FindInMap)(void *map, const void *key) = (void *)BPF_FUNC_map_lookup_elem;
static long (*const PutIntoMap)(void *map, const void *key, const void *value,
                                __u64 flags) = (void *)BPF_FUNC_map_update_elem;
static long (*const LoadBytes)(const struct __sk_buff *skb, __u32 offset, void *to,
                               __u32 size) = (void *)BPF_FUNC_skb_load_bytes;
static long (*const SendCopy)(struct __sk_buff *skb, __u32 link,
                              __u64 flags) = (void *)BPF_FUNC_clone_redirect;
static long (*const SendOn)(__u32 link, __u64 flags) = (void *)BPF_FUNC_redirect;
static __u64 (*const CoarseTime)(void) = (void *)BPF_FUNC_ktime_get_coarse_ns;

/* Flags of the two above: into the stack of the interface, as if it had received the frame. */
#define RECEIVED BPF_F_INGRESS
#define SENT 0

/* The maps, which the daemon makes: their names are resolved when a program is loaded. */
extern char cableRecord[];    /* one struct CableRecord */
extern char guestSenders[];   /* LRU: address -> struct Sender */
extern char adapterSenders[]; /* the same for the side of this adapter */
extern char sentFrames[];     /* SENT_FRAMES struct SentFrame */

FRAME_RULE struct CableRecord *FindRecord(void) {
    __u32 first = 0;
    return FindInMap(cableRecord, &first);
}

FRAME_RULE int IsTagType(__u64 type) {
    return type == ETH_P_8021Q || type == ETH_P_8021AD;
}

/* False for a frame that is too short to be one. The kernel keeps the outer tag beside the frame or in it. */
FRAME_RULE int ReadHead(struct __sk_buff *skb, struct FrameHead *frame) {
    const __u8 *start = (const __u8 *)(long)skb->data;
    const __u8 *end = (const __u8 *)(long)skb->data_end;
    if (start + ETH_HLEN > end) {
        return 0;
    }
    frame->to = Mac_Read(start);
    frame->from = Mac_Read(start + ETH_ALEN);
    frame->vlan = 0;
    frame->nested = 0;
    __u64 type = (__u64)start[12] << 8 | start[13];
    if (skb->vlan_present) {
        frame->vlan = skb->vlan_tci & (VLAN_COUNT - 1);
        frame->nested = frame->vlan == 0 && IsTagType(type);
    } else if (IsTagType(type)) {
        __u8 tag[4];
        if (LoadBytes(skb, ETH_HLEN, tag, sizeof tag) != 0) {
            return 0;
        }
        frame->vlan = ((__u64)tag[0] << 8 | tag[1]) & (VLAN_COUNT - 1);
        frame->nested = frame->vlan == 0 && IsTagType((__u64)tag[2] << 8 | tag[3]);
    }
    return 1;
}

FRAME_RULE int HasToken(const struct __sk_buff *skb, const struct CableRecord *record) {
    return skb->cb[0] == (__u32)record->token && skb->cb[1] == (__u32)(record->token >> 32);
}

FRAME_RULE void PutToken(struct __sk_buff *skb, __u64 token) {
    skb->cb[0] = (__u32)token;
    skb->cb[1] = (__u32)(token >> 32);
}

FRAME_RULE void Hear(void *senders, __u64 mac, __u64 now, __u64 isHost) {
    struct Sender *known = FindInMap(senders, &mac);
    if (known == 0) {
        struct Sender fresh = {now, isHost};
        PutIntoMap(senders, &mac, &fresh, BPF_ANY);
    } else if (known->heard != now || known->isHost != isHost) {
        known->heard = now;
        known->isHost = isHost;
    }
}

FRAME_RULE __u64 HeardAt(void *senders, __u64 mac) {
    const struct Sender *known = FindInMap(senders, &mac);
    return known == 0 ? 0 : known->heard;
}

FRAME_RULE int SidesOf(__u64 mac) {
    return Sides(HeardAt(guestSenders, mac), HeardAt(adapterSenders, mac));
}

FRAME_RULE struct SentFrame *FindPrint(struct __sk_buff *skb, const struct FrameHead *frame, __u64 *print) {
    __u8 head[PRINT_BYTES];
    if (LoadBytes(skb, 0, head, sizeof head) != 0) {
        return 0;
    }
    *print = Frame_Print(head, frame->vlan);
    __u32 place = Frame_PrintPlace(*print);
    return FindInMap(sentFrames, &place);
}

FRAME_RULE void NoteSent(struct __sk_buff *skb, const struct CableRecord *record,
                         const struct FrameHead *frame, __u64 now) {
    __u64 print = 0;
    struct SentFrame *place = record->several ? FindPrint(skb, frame, &print) : 0;
    if (place != 0) {
        place->print = print;
        place->sent = now;
    }
}

FRAME_RULE int IsEcho(struct __sk_buff *skb, const struct CableRecord *record, const struct FrameHead *frame,
                      __u64 now) {
    __u64 print = 0;
    const struct SentFrame *place = record->several ? FindPrint(skb, frame, &print) : 0;
    return place != 0 && Frame_IsEcho(place, print, now);
}

/* Gives a frame on the adapter's side to the guests, or to both sides. */
FRAME_RULE int GiveToGuests(struct __sk_buff *skb, const struct CableRecord *record, int sides) {
    if ((sides & TO_ADAPTER) == 0) {
        return (int)SendOn(record->tap, RECEIVED);
    }
    SendCopy(skb, record->tap, RECEIVED);
    return TC_ACT_UNSPEC;
}

/* What the adapter receives. */
PROGRAM("adapterIn") AdapterIn(struct __sk_buff *skb) {
    struct CableRecord *record = FindRecord();
    struct FrameHead frame;
    if (record == 0) {
        return TC_ACT_UNSPEC;
    }
    if (HasToken(skb, record)) {
        PutToken(skb, 0);
        return TC_ACT_UNSPEC;
    }
    if (!ReadHead(skb, &frame) || Mac_IsLinkControl(frame.to) || Frame_IsHostsVlan(&frame, record)) {
        return TC_ACT_UNSPEC;
    }
    __u64 now = CoarseTime();
    int sides = Mac_IsGroup(frame.to) ? TO_GUESTS | TO_ADAPTER : SidesOf(frame.to);
    if (skb->pkt_type == PACKET_HOST || frame.to == record->mac) {
        sides = TO_ADAPTER;
    }
    if (Mac_IsGroup(frame.from) || ((sides & TO_GUESTS) != 0 && IsEcho(skb, record, &frame, now))) {
        return TC_ACT_UNSPEC;
    }
    if (frame.from != record->mac) {
        Hear(adapterSenders, frame.from, now, 0);
    }
    return (sides & TO_GUESTS) != 0 ? GiveToGuests(skb, record, sides) : TC_ACT_UNSPEC;
}

/* What the host sends by the adapter. */
PROGRAM("adapterOut") AdapterOut(struct __sk_buff *skb) {
    struct CableRecord *record = FindRecord();
    struct FrameHead frame;
    if (record == 0) {
        return TC_ACT_UNSPEC;
    }
    if (HasToken(skb, record)) {
        /* Another adapter of this host may be at the other end. */
        PutToken(skb, 0);
        return TC_ACT_UNSPEC;
    }
    if (!ReadHead(skb, &frame) || Mac_IsLinkControl(frame.to) || frame.vlan != 0 || frame.nested != 0) {
        return TC_ACT_UNSPEC;
    }
    __u64 now = CoarseTime();
    if (frame.from != record->mac) {
        Hear(adapterSenders, frame.from, now, 1);
    }
    int sides = Mac_IsGroup(frame.to) ? TO_GUESTS | TO_ADAPTER : SidesOf(frame.to);
    if (sides == (TO_GUESTS | TO_ADAPTER)) {
        NoteSent(skb, record, &frame, now);
    }
    return (sides & TO_GUESTS) != 0 ? GiveToGuests(skb, record, sides) : TC_ACT_UNSPEC;
}

/* What the switch sends by the cable's port. Nothing ever gets past this program to the TAP's descriptor. */
PROGRAM("tapOut") TapOut(struct __sk_buff *skb) {
    struct CableRecord *record = FindRecord();
    struct FrameHead frame;
    if (record == 0 || !ReadHead(skb, &frame) || Mac_IsLinkControl(frame.to) || frame.from == record->mac ||
        Frame_IsHostsVlan(&frame, record)) {
        return TC_ACT_SHOT;
    }
    __u64 now = CoarseTime();
    Hear(guestSenders, frame.from, now, 0);
    PutToken(skb, record->token);
    if (frame.to == record->mac) {
        return frame.vlan == 0 ? (int)SendOn(record->adapter, RECEIVED) : TC_ACT_SHOT;
    }
    const struct Sender *there = Mac_IsGroup(frame.to) ? 0 : FindInMap(adapterSenders, &frame.to);
    if (there != 0) {
        return (int)SendOn(record->adapter, there->isHost ? RECEIVED : SENT);
    }
    NoteSent(skb, record, &frame, now);
    if (Mac_IsGroup(frame.to) && frame.vlan == 0) {
        SendCopy(skb, record->adapter, RECEIVED);
    }
    return (int)SendOn(record->adapter, SENT);
}

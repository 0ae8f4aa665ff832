#!/usr/bin/env python3
"""Writes the hand-made operation sequences of fuzz_component into fuzz/corpus/fuzz_component/.

Each sequence is encoded as fuzz_component.cpp decodes it: a setup byte (2 bits per component:
0x10, 0x20, 0x30), then operations. Run it again after changing the format; FUZZ_COMPONENT_TRACE=1
fuzz_component FILE shows what a sequence reaches.
"""
import os
import struct
import sys

# Opcodes (operation byte % 18).
DELIVER, FCM, FLUSH, ADVANCE, SUB, UNSUB, SEND, WORK, TABLE, DEPLOY, CLI, FAIL, REACT, UPDOWN, DEBUG, DEINIT = (
    0, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17)
# Pid selectors: 0x10, 0x20, 0x30, 0x40 (no instance at first), 0x99 (never one).
P10, P20, P30, P40, P99 = range(5)
# Group selectors: groups 1..6 (1, 2 -> 0x10; 3 -> 0x20; 4 -> 0x30; 5, 6 -> none).
G1, G2, G3, G4, G5, G6 = range(6)
# Message types.
(ADD_PRODUCER, DEL_PRODUCER, BN_BEGIN, BN_DATA, BN_END, RN_DATA, REGISTER, UNREGISTER, SUBSCRIBE,
 UNSUBSCRIBE, BU_BEGIN, BU_DATA, BU_END, BU_BEGIN_END, RU_DATA, NOTIFY_EVENT) = range(1, 17)
# Slots and reactions.
S_REGACK, S_RECVDATA, S_ALLOCFAIL, S_FCM, S_ISDEBUG, S_DEBUGOUT, S_BATCHBEGIN, S_TRACE, S_ITEMDOWN = range(9)
A_NONE, A_WORKOFF, A_WORKON, A_WORKOFFON, A_SUB, A_UNSUB, A_SEND, A_TABLE, A_GET = range(9)
# Failure kinds.
F_MALLOC, F_MSGALLOC, F_TIMER, F_SEND, F_MEMINIT, F_REGMSG, F_REGCFG, F_REGINNER = range(8)


def u16(v):
    return struct.pack(">H", v & 0xFFFF)


def u32(v):
    return struct.pack(">I", v & 0xFFFFFFFF)


def small(v):
    """Sequence or transaction id: a small number (0..31)."""
    return bytes([(v << 3) | 0])


def batch_next(v=1):
    """The instance's BatchSeqNum (or BatchTransId) plus v."""
    return bytes([(v << 3) | 1])


def prod_seq(v=0):
    """The producer's seq (or tran) plus v."""
    return bytes([(v << 3) | 2])


def notify_seq(v=0):
    return bytes([(v << 3) | 3])


def record(key, data_len=4, rtype_sel=0):
    """A well-formed data record (rtype_sel: 0 3002, 1 3003, 2 3004)."""
    return bytes([rtype_sel, data_len, key])


def msg(pid, mtype, ack, seq=b"\x00", trans=b"\x00", records=(), notify=None, raw_body=None, msg_len=None,
        delta=None):
    """A message with a header; delta (-64..63) makes the delivered size differ from its size."""
    mode = mtype | (0x40 if ack else 0)
    body = 0
    tail = b""
    if raw_body is not None:
        body = 0x40 | len(raw_body)
        tail = raw_body
    else:
        body = len(records)
        tail = b"".join(records)
        if notify is not None:
            body |= 0x10
            tail += u16(notify)
    if msg_len is not None:
        body |= 0x20
        tail += u16(msg_len)
    d = 0 if delta is None else (((delta + 64) << 1) | 1)
    return bytes([DELIVER, pid, mode]) + seq + trans + bytes([body]) + tail + bytes([d])


def raw(pid, data, delivered=None):
    out = bytes([DELIVER, pid, 0xFF]) + u16(len(data)) + data
    return out + (b"\x00" if delivered is None else b"\x01" + u16(delivered))


def advance(sel):
    """sel: index into 1, 499, 500, 2999, 3000, 5001..5005, 10000."""
    return bytes([ADVANCE, sel])


def tlv_plain(key_byte=1):
    """The default TLV of the call (item key 1/5, subscription 2/1, key 3001/8, data 1001/8)."""
    return bytes([key_byte & 0x3F])


def tlv_any(t, ln, value=b""):
    return bytes([0xC0]) + u16(t) + u16(ln) + value.ljust(12, b"\x00")


def sub(key=tlv_plain(), val=tlv_plain(), group=G1, unsub=False):
    return bytes([UNSUB if unsub else SUB]) + key + val + bytes([group])


def send(group, key=tlv_plain(), data=tlv_plain()):
    return bytes([SEND, group]) + key + data


def work(on):
    return bytes([WORK, 1 if on else 0])


def table(mask):
    return bytes([TABLE]) + u16(mask)


def deploy(create, pid, group):
    return bytes([DEPLOY, 0 if create else 1, pid, group])


def cli(item, pid_sel=0):
    return bytes([CLI, item, pid_sel, 0])


def fail(kind, skip=0, count=1):
    return bytes([FAIL, kind, skip, count - 1])


def react(slot, action, times=1, group=G1, extra=b""):
    return bytes([REACT, slot, action, times - 1, group]) + extra


SEEDS = {
    "consumer_batch_broken": bytes([0x15])
    + msg(P10, RU_DATA, False, records=[record(1), record(2, 8)])
    + msg(P10, BU_BEGIN, False, seq=small(7))
    + msg(P10, BU_DATA, False, seq=batch_next(1), records=[record(1), record(2, 0, 1), record(3, 4, 2)])
    + msg(P10, BU_DATA, False, seq=batch_next(2), records=[record(4)])
    + msg(P10, BU_END, False, seq=batch_next(1))
    + advance(4)
    + msg(P10, NOTIFY_EVENT, True, seq=notify_seq())
    + msg(P10, BU_BEGIN_END, False, records=[record(5), record(6)]),
    "consumer_register_retry": bytes([0x00])
    + fail(F_MSGALLOC)
    + advance(2)
    + msg(P30, REGISTER, True)
    + fail(F_MSGALLOC)
    + bytes([FLUSH])
    + bytes([FCM, P30])
    + msg(P30, SUBSCRIBE, True)
    + sub(group=G4, unsub=True)
    + bytes([FLUSH])
    + msg(P30, UNSUBSCRIBE, True),
    "producer_realtime": bytes([0x3F])
    + send(G1, tlv_plain(3), tlv_plain(9))
    + send(G1, tlv_plain(1), tlv_plain(7))
    + fail(F_MSGALLOC)
    + bytes([FLUSH])
    + bytes([FCM, P10])
    + advance(9)
    + msg(P10, RN_DATA, True, seq=prod_seq())
    + send(G3, tlv_plain(4))
    + bytes([FLUSH])
    + msg(P20, RN_DATA, True, seq=prod_seq()),
    "producer_notify_event": bytes([0x2A])
    + msg(P20, NOTIFY_EVENT, False, seq=small(5), raw_body=bytes([0x07, 0xD1, 0, 4, 0, 1, 0, 0]))
    + msg(P20, BN_BEGIN, True, seq=prod_seq())
    + msg(P20, NOTIFY_EVENT, False, seq=small(6), notify=1)
    + msg(P20, BN_END, True, seq=prod_seq(1))
    + advance(7)
    + msg(P10, DEL_PRODUCER, False),
    "producer_batch_retransmit": bytes([0x15])
    + msg(P10, ADD_PRODUCER, True)
    + fail(F_MSGALLOC)
    + advance(6)
    + msg(P10, BN_BEGIN, True, seq=prod_seq())
    + fail(F_SEND)
    + advance(7)
    + msg(P10, BN_DATA, True, seq=prod_seq())
    + msg(P10, BN_END, True, seq=prod_seq(1)),
    "reentry_itemdown_subscribe": bytes([0x15])
    + react(S_ITEMDOWN, A_SUB, 2, G1, tlv_plain(7) + tlv_plain())
    + react(S_REGACK, A_WORKOFF, 1)
    + work(False)
    + work(True)
    + msg(P10, REGISTER, True)
    + bytes([UPDOWN, P20, 0])
    + bytes([UPDOWN, P20, 1]),
    "reentry_allocfail_work": bytes([0x3F])
    + react(S_ALLOCFAIL, A_WORKOFFON, 2)
    + sub(tlv_plain(5), group=G3)
    + fail(F_MSGALLOC)
    + bytes([FLUSH])
    + send(G1, tlv_plain(8))
    + fail(F_MSGALLOC)
    + bytes([FLUSH])
    + react(S_ALLOCFAIL, A_WORKOFF, 1)
    + fail(F_MSGALLOC)
    + advance(2),
    "reentry_recvdata_senddata": bytes([0x3F])
    + react(S_RECVDATA, A_SEND, 3, G1, tlv_plain(2) + tlv_plain(3))
    + msg(P10, RU_DATA, False, records=[record(1), record(2), record(3)])
    + react(S_BATCHBEGIN, A_SEND, 1, G3, tlv_plain(5) + tlv_plain(5))
    + react(S_RECVDATA, A_WORKOFF, 1)
    + msg(P20, BU_DATA, False, seq=batch_next(1), records=[record(1), record(2)])
    + bytes([FLUSH]),
    "cli_every_item": bytes([0x3B])
    + b"".join(cli(i, p) for i in range(8) for p in (0, 1, 2))
    + bytes([CLI, 0xF0, 4]) + b"inst" + bytes([4, 4]) + b"0x1z" + bytes([0xF5]) + u32(7),
    "deploy_relations": bytes([0x05])
    + deploy(True, P40, G5)
    + deploy(True, P10, G6)
    + deploy(False, P10, G1)
    + deploy(False, P10, G2)
    + deploy(False, P10, G6)
    + deploy(True, P40, G5)
    + bytes([DEPLOY, 2]) + struct.pack("<9I", 37, 0x50, 0, 0, 0, 7, 0, 0, 0)
    + bytes([DEPLOY, 3]) + struct.pack("<9I", 37, 0x50, 0, 0, 0, 7, 0, 0, 0)
    + advance(10)
    + msg(P40, REGISTER, True)
    + deploy(False, P40, G5),
    "subscribe_lengths": bytes([0x15])
    + sub(tlv_any(1, 13, b"\x01"), tlv_plain())
    + sub(tlv_any(1, 12, b"\x02" * 12), tlv_any(2, 12, b"\x03" * 12))
    + sub(tlv_any(1, 5, b"\x03"), tlv_any(2, 0x400), unsub=True)
    + bytes([FLUSH])
    + sub(tlv_plain(9), tlv_plain(), G1, unsub=True)
    + bytes([FLUSH])
    + msg(P10, SUBSCRIBE, True)
    + msg(P10, UNSUBSCRIBE, True)
    + send(G1, tlv_any(3001, 9), tlv_plain()),
    "missing_callbacks": bytes([0x15])
    + table(0x200)
    + msg(P10, RU_DATA, False, records=[record(1)])
    + work(False)
    + work(True)
    + msg(P10, REGISTER, True)
    + table(0x1FF)
    + msg(P20, RU_DATA, False, records=[record(2)]),
    "malformed_messages": bytes([0x15])
    + raw(P10, b"\x00\x10\x01\x0f")
    + raw(P10, bytes(20))
    + raw(P10, b"\x00\x30\x01\x0f" + bytes(16), delivered=0x30)
    + msg(P10, RU_DATA, False, records=[bytes([0x40, 4]) + u16(200) + bytes([0x10])])
    + msg(P10, RU_DATA, False, records=[bytes([0x80, 4, 1, 6])])
    + msg(P10, RU_DATA, False, records=[record(1)], msg_len=0x200)
    + msg(P10, RU_DATA, False, records=[record(1), record(2)], delta=-10)
    + raw(P99, bytes([0, 20, 0x81, 7]) + bytes(16))
    + bytes([FCM, P99]),
    "deinit_and_get": bytes([0x3F])
    + bytes([DEBUG, 1])
    + msg(P10, RU_DATA, False, records=[record(1)])
    + bytes([DEINIT]) + u16(0)
    + deploy(True, P10, G1)
    + msg(P10, REGISTER, True)
    + fail(F_REGCFG)
    + bytes([DEINIT]) + u16(0)
    + bytes([DEBUG, 0]),
    "framework_down_up": bytes([0x3F])
    + bytes([UPDOWN, P10, 0])
    + msg(P10, RU_DATA, False, records=[record(1)])
    + send(G1, tlv_plain(1))
    + bytes([UPDOWN, P10, 1])
    + advance(2)
    + msg(P10, REGISTER, True)
    + fail(F_TIMER)
    + bytes([UPDOWN, P30, 0])
    + bytes([UPDOWN, P30, 1]),
}


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "corpus", "fuzz_component")
    os.makedirs(out, exist_ok=True)
    for name, data in SEEDS.items():
        with open(os.path.join(out, "seed_" + name), "wb") as f:
            f.write(data)
    print(f"{len(SEEDS)} seeds written to {out}")


if __name__ == "__main__":
    main()

-- Wireshark dissector for the captures that `zanvrrp-sim script --pcap FILE` writes.
--
-- A capture is a pcap file of link type USER0 (147). Every packet is a 12-byte pseudo-header in
-- network byte order (virtual time in ms, sender pid, receiver pid) followed by one message:
-- the 20-byte header (every word big-endian) and a body whose form depends on the message type.
-- The body is read exactly as the simulator's decoder (tools/zanvrrp-sim/wire/decode.cpp) reads it,
-- so that `tshark -T fields` and `zanvrrp-sim pcap-fields` print the same values (a CTest test
-- compares them). A body that does not hold what it claims is marked malformed (an expert info
-- and zanvrrp.malformed = 1); the dissector never reads past the packet.
--
-- Every party has an address, its pid, so that Statistics > Flow Graph (tshark -z
-- flow,any,network) draws the exchange as a ladder: one column per party, one arrow per message.
--
-- Use: wireshark -X lua_script:tools/wireshark/zanvrrp.lua capture.pcap
-- or copy this file into Wireshark's personal Lua plugins folder.

local zanvrrp = Proto("zanvrrp", "ZAN VRRP component message")

local PSEUDO_LEN = 12
local HDR_LEN = 20

local msg_types = {
    [0] = "Unknown", [1] = "AddProducer", [2] = "DelProducer", [3] = "BNBegin", [4] = "BNData",
    [5] = "BNEnd", [6] = "RNData", [7] = "Register", [8] = "UnRegister", [9] = "Subscribe",
    [10] = "UnSubscribe", [11] = "BUBegin", [12] = "BUData", [13] = "BUEnd", [14] = "BUBeginEnd",
    [15] = "RUData", [16] = "NotifyEvent",
}

-- Bytes a data record carries between its header and its key TLV, by record type.
local record_skip = { [3002] = 0, [3003] = 4, [3004] = 8 }
local record_types = { [3002] = "no extra bytes", [3003] = "4 extra bytes", [3004] = "8 extra bytes" }

-- Field display bases are decimal (or decimal with hex) so that `tshark -T fields` prints the
-- decimal values that pcap-fields prints.
local f = {
    time = ProtoField.uint32("zanvrrp.time", "Virtual time (ms)", base.DEC),
    sender = ProtoField.uint32("zanvrrp.sender", "Sender pid", base.DEC_HEX),
    receiver = ProtoField.uint32("zanvrrp.receiver", "Receiver pid", base.DEC_HEX),

    msglen = ProtoField.uint16("zanvrrp.msglen", "usMsgLen", base.DEC),
    flags = ProtoField.uint8("zanvrrp.flags", "ucFlags", base.DEC_HEX),
    ack = ProtoField.bool("zanvrrp.flags.ack", "Acknowledgement", 8, nil, 0x80),
    msgtype = ProtoField.uint8("zanvrrp.msgtype", "ucMsgType", base.DEC, msg_types),
    transid = ProtoField.uint32("zanvrrp.transid", "ulTransId", base.DEC_HEX),
    hdrword8 = ProtoField.uint16("zanvrrp.hdrword8", "usHdrWord8", base.DEC_HEX),
    hdrword10 = ProtoField.uint16("zanvrrp.hdrword10", "usHdrWord10", base.DEC_HEX),
    seqnum = ProtoField.uint32("zanvrrp.seqnum", "ulSeqNum", base.DEC_HEX),
    hdrword16 = ProtoField.uint16("zanvrrp.hdrword16", "usHdrWord16", base.DEC_HEX),
    entrycnt = ProtoField.uint16("zanvrrp.entrycnt", "usEntryCnt", base.DEC),

    elements = ProtoField.uint32("zanvrrp.elements", "Body elements", base.DEC),
    -- The key value of every body element (for NotifyEvent: the event TLV's value).
    key = ProtoField.bytes("zanvrrp.key", "Key value"),
    key_type = ProtoField.uint16("zanvrrp.key.type", "Key TLV type", base.DEC),
    key_len = ProtoField.uint16("zanvrrp.key.len", "Key TLV length", base.DEC),
    sub = ProtoField.bytes("zanvrrp.sub", "Subscription value"),
    sub_type = ProtoField.uint16("zanvrrp.sub.type", "Subscription TLV type", base.DEC),
    sub_len = ProtoField.uint16("zanvrrp.sub.len", "Subscription TLV length", base.DEC),
    data = ProtoField.bytes("zanvrrp.data", "Data value"),
    data_type = ProtoField.uint16("zanvrrp.data.type", "Data TLV type", base.DEC),
    data_len = ProtoField.uint16("zanvrrp.data.len", "Data TLV length", base.DEC),
    rec_type = ProtoField.uint16("zanvrrp.record.type", "Record type", base.DEC, record_types),
    rec_len = ProtoField.uint16("zanvrrp.record.len", "Record length", base.DEC),
    rec_unread = ProtoField.bytes("zanvrrp.record.unread", "Unread bytes"),
    event_type = ProtoField.uint16("zanvrrp.event.type", "Event TLV type", base.DEC),
    event_len = ProtoField.uint16("zanvrrp.event.len", "Event TLV length", base.DEC),
    event_keytype = ProtoField.uint16("zanvrrp.event.keytype", "Key type", base.DEC),
    event_reserved = ProtoField.uint16("zanvrrp.event.reserved", "Reserved", base.DEC),

    body = ProtoField.bytes("zanvrrp.body", "Body (not interpreted for this type)"),
    undecoded = ProtoField.bytes("zanvrrp.undecoded", "Undecoded bytes"),
    trailing = ProtoField.bytes("zanvrrp.trailing", "Bytes after usMsgLen"),
    malformed = ProtoField.uint8("zanvrrp.malformed", "Malformed", base.DEC),
}
zanvrrp.fields = {
    f.time, f.sender, f.receiver, f.msglen, f.flags, f.ack, f.msgtype, f.transid, f.hdrword8,
    f.hdrword10, f.seqnum, f.hdrword16, f.entrycnt, f.elements, f.key, f.key_type, f.key_len,
    f.sub, f.sub_type, f.sub_len, f.data, f.data_type, f.data_len, f.rec_type, f.rec_len,
    f.rec_unread, f.event_type, f.event_len, f.event_keytype, f.event_reserved, f.body,
    f.undecoded, f.trailing, f.malformed,
}

local ef_malformed = ProtoExpert.new("zanvrrp.expert.malformed", "Malformed message",
    expert.group.MALFORMED, expert.severity.ERROR)
zanvrrp.experts = { ef_malformed }

-- What the body of each type holds, as the decoder names it.
local elem_names = {
    item = { "item", "items" }, record = { "record", "records" },
    part = { "part", "parts" }, event = { "event", "events" },
}

-- Reads a TLV at message offset pos (packet offset base + pos) that must end by `last`.
-- Returns the TLV's type, length and the offset after it, or nil and what is wrong.
local function read_tlv(tvb, base_off, pos, last, what)
    if pos + 4 > last then
        return nil, what .. " TLV header cut at byte " .. pos
    end
    local t = tvb(base_off + pos, 2):uint()
    local l = tvb(base_off + pos + 2, 2):uint()
    if pos + 4 + l > last then
        return nil, what .. " TLV of " .. l .. " bytes runs past byte " .. last
    end
    return { type = t, len = l, pos = pos }, nil
end

-- Adds a TLV's type, length and value fields.
local function add_tlv(tree, tvb, base_off, tlv, ftype, flen, fvalue)
    local at = base_off + tlv.pos
    tree:add(ftype, tvb(at, 2))
    tree:add(flen, tvb(at + 2, 2))
    return tree:add(fvalue, tvb(at + 4, tlv.len))
end

-- Marks what follows `pos` as undecoded, with the reason as an expert info.
local function mark_bad(tree, tvb, base_off, pos, last, why)
    local item
    if pos < last then
        item = tree:add(f.undecoded, tvb(base_off + pos, last - pos))
    else
        item = tree
    end
    item:add_proto_expert_info(ef_malformed, why)
end

-- Two-TLV elements (subscription items, data parts). Returns the count and the reason of a
-- malformed body (nil when it is whole).
local function dissect_pairs(tvb, tree, base_off, last, kind, key_what, second_what, fsec)
    local pos, count = HDR_LEN, 0
    while pos < last do
        local key, why = read_tlv(tvb, base_off, pos, last, key_what)
        local second
        if key then
            second, why = read_tlv(tvb, base_off, pos + 4 + key.len, last, second_what)
        end
        if not second then
            local sub = tree:add(zanvrrp, tvb(base_off + pos, last - pos), "Malformed " .. kind)
            mark_bad(sub, tvb, base_off, pos, last, why)
            return count, why
        end
        local elem_end = second.pos + 4 + second.len
        local sub = tree:add(zanvrrp, tvb(base_off + pos, elem_end - pos),
            kind:gsub("^%l", string.upper) .. " " .. (count + 1))
        local kt = sub:add(zanvrrp, tvb(base_off + pos, 4 + key.len), "Key TLV")
        add_tlv(kt, tvb, base_off, key, f.key_type, f.key_len, f.key)
        local st = sub:add(zanvrrp, tvb(base_off + second.pos, 4 + second.len), fsec.label)
        add_tlv(st, tvb, base_off, second, fsec.type, fsec.len, fsec.value)
        count = count + 1
        pos = elem_end
    end
    return count, nil
end

local function dissect_records(tvb, tree, base_off, last)
    local pos, count = HDR_LEN, 0
    while pos < last do
        if pos + 4 > last then
            local why = "record header cut at byte " .. pos
            local sub = tree:add(zanvrrp, tvb(base_off + pos, last - pos), "Malformed record")
            mark_bad(sub, tvb, base_off, pos, last, why)
            return count, why
        end
        local rtype = tvb(base_off + pos, 2):uint()
        local rec_end = pos + 4 + tvb(base_off + pos + 2, 2):uint()
        local skip = record_skip[rtype]
        local why
        local key, data
        if rec_end > last then
            why = "record at byte " .. pos .. " runs past byte " .. last
        elseif not skip then
            why = "record type " .. rtype .. " at byte " .. pos
        else
            local p = pos + 4 + skip
            if p > rec_end then
                why = "record at byte " .. pos .. " too short"
            else
                key, why = read_tlv(tvb, base_off, p, rec_end, "record key")
                if key then
                    data, why = read_tlv(tvb, base_off, p + 4 + key.len, rec_end, "record data")
                end
            end
        end
        local shown_end = rec_end <= last and rec_end or last
        local sub = tree:add(zanvrrp, tvb(base_off + pos, shown_end - pos),
            (data and "Record " .. (count + 1) or "Malformed record"))
        sub:add(f.rec_type, tvb(base_off + pos, 2))
        sub:add(f.rec_len, tvb(base_off + pos + 2, 2))
        if not data then
            mark_bad(sub, tvb, base_off, pos + 4, shown_end, why)
            return count, why
        end
        if skip > 0 then
            sub:add(f.rec_unread, tvb(base_off + pos + 4, skip))
        end
        local kt = sub:add(zanvrrp, tvb(base_off + key.pos, 4 + key.len), "Key TLV")
        add_tlv(kt, tvb, base_off, key, f.key_type, f.key_len, f.key)
        local dt = sub:add(zanvrrp, tvb(base_off + data.pos, 4 + data.len), "Data TLV")
        add_tlv(dt, tvb, base_off, data, f.data_type, f.data_len, f.data)
        count = count + 1
        pos = rec_end
    end
    return count, nil
end

local function dissect_event(tvb, tree, base_off, last)
    if HDR_LEN >= last then
        return 0, nil
    end
    local tlv, why = read_tlv(tvb, base_off, HDR_LEN, last, "event")
    if not tlv then
        local sub = tree:add(zanvrrp, tvb(base_off + HDR_LEN, last - HDR_LEN), "Malformed event")
        mark_bad(sub, tvb, base_off, HDR_LEN, last, why)
        return 0, why
    end
    local sub = tree:add(zanvrrp, tvb(base_off + HDR_LEN, 4 + tlv.len), "Event TLV")
    local vitem = add_tlv(sub, tvb, base_off, tlv, f.event_type, f.event_len, f.key)
    if tlv.len == 4 then
        vitem:add(f.event_keytype, tvb(base_off + HDR_LEN + 4, 2))
        vitem:add(f.event_reserved, tvb(base_off + HDR_LEN + 6, 2))
    end
    return 1, nil
end

local item_second = { label = "Subscription TLV", type = f.sub_type, len = f.sub_len, value = f.sub }
local part_second = { label = "Data TLV", type = f.data_type, len = f.data_len, value = f.data }

-- The body from offset 20 to `last`; returns the element count, its kind and the reason of a
-- malformed body.
local function dissect_body(tvb, tree, base_off, mtype, last)
    if mtype == 9 or mtype == 10 then
        local n, why = dissect_pairs(tvb, tree, base_off, last, "item", "item key", "subscription", item_second)
        return n, "item", why
    elseif mtype == 4 or mtype == 6 then
        local n, why = dissect_pairs(tvb, tree, base_off, last, "part", "part key", "part data", part_second)
        return n, "part", why
    elseif mtype == 12 or mtype == 14 or mtype == 15 then
        local n, why = dissect_records(tvb, tree, base_off, last)
        return n, "record", why
    elseif mtype == 16 then
        local n, why = dissect_event(tvb, tree, base_off, last)
        return n, "event", why
    end
    if last > HDR_LEN then
        tree:add(f.body, tvb(base_off + HDR_LEN, last - HDR_LEN))
    end
    return 0, nil, nil
end

local function add_malformed(tree, bad)
    tree:add(f.malformed, bad and 1 or 0):set_generated()
end

local function pid_address(high, low)
    return Address.ipv6(string.format("::%x:%x", high, low))
end

function zanvrrp.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "ZANVRRP"
    local total = tvb:len()
    local tree = root:add(zanvrrp, tvb(), "ZAN VRRP component message")
    if total < PSEUDO_LEN then
        tree:add(f.undecoded, tvb())
        tree:add_proto_expert_info(ef_malformed, total .. " bytes, shorter than the pseudo-header")
        add_malformed(tree, true)
        pinfo.cols.info = "(no pseudo-header)"
        return total
    end

    local ph = tree:add(zanvrrp, tvb(0, PSEUDO_LEN), "Capture pseudo-header")
    ph:add(f.time, tvb(0, 4))
    ph:add(f.sender, tvb(4, 4))
    ph:add(f.receiver, tvb(8, 4))
    -- Each party's address is its pid, so that the flow graph draws one column per party. A
    -- Lua dissector can set only IP and Ethernet addresses: the pid is an IPv6 address whose
    -- hex digits are the pid's (::100 the library of component id 0x100, ::10 the VRRP
    -- component of pid 0x10).
    local src = pid_address(tvb(4, 2):uint(), tvb(6, 2):uint())
    local dst = pid_address(tvb(8, 2):uint(), tvb(10, 2):uint())
    pinfo.src = src
    pinfo.net_src = src
    pinfo.dst = dst
    pinfo.net_dst = dst

    local base_off = PSEUDO_LEN
    local n = total - PSEUDO_LEN
    if n < HDR_LEN then
        local why = n .. " bytes, shorter than a header"
        if n > 0 then
            tree:add(f.undecoded, tvb(base_off, n))
        end
        tree:add(f.elements, 0):set_generated()
        tree:add_proto_expert_info(ef_malformed, why)
        add_malformed(tree, true)
        pinfo.cols.info = "(" .. why .. ")"
        tree:append_text(": (" .. why .. ")")
        return total
    end

    local len = tvb(base_off, 2):uint()
    local flags = tvb(base_off + 2, 1):uint()
    local mtype = tvb(base_off + 3, 1):uint()
    local hdr = tree:add(zanvrrp, tvb(base_off, HDR_LEN), "Header")
    local len_item = hdr:add(f.msglen, tvb(base_off, 2))
    local flags_item = hdr:add(f.flags, tvb(base_off + 2, 1))
    flags_item:add(f.ack, tvb(base_off + 2, 1))
    hdr:add(f.msgtype, tvb(base_off + 3, 1))
    hdr:add(f.transid, tvb(base_off + 4, 4))
    hdr:add(f.hdrword8, tvb(base_off + 8, 2))
    hdr:add(f.hdrword10, tvb(base_off + 10, 2))
    hdr:add(f.seqnum, tvb(base_off + 12, 4))
    hdr:add(f.hdrword16, tvb(base_off + 16, 2))
    hdr:add(f.entrycnt, tvb(base_off + 18, 2))

    -- The body runs to usMsgLen; a length below a header or beyond the bytes is malformed, and
    -- a length beyond the bytes still lets the body be read up to the end of the bytes.
    local last = len
    local bad = false
    local why_all = {}
    if len < HDR_LEN or len > n then
        bad = true
        local why = "length " .. len .. " with " .. n .. " bytes"
        why_all[#why_all + 1] = why
        len_item:add_proto_expert_info(ef_malformed, why)
        last = len < HDR_LEN and HDR_LEN or n
    end

    local count, kind = 0, nil
    if not bad or len > n then
        local body = tree
        if last > HDR_LEN then
            body = tree:add(zanvrrp, tvb(base_off + HDR_LEN, last - HDR_LEN), "Body")
        end
        local why
        count, kind, why = dissect_body(tvb, body, base_off, mtype, last)
        if why then
            bad = true
            why_all[#why_all + 1] = why
        end
    elseif n > HDR_LEN then
        tree:add(f.undecoded, tvb(base_off + HDR_LEN, n - HDR_LEN))
    end
    if not bad and n > len then
        tree:add(f.trailing, tvb(base_off + len, n - len))
    end
    tree:add(f.elements, count):set_generated()
    add_malformed(tree, bad)

    -- Short enough to label an arrow of the flow graph: the type, then the transaction and
    -- sequence numbers where they are set, then what the body holds.
    local info = (msg_types[mtype] or "Unknown") .. ((flags >= 0x80) and " ack" or "")
    local tran = tvb(base_off + 4, 4):uint()
    local seq = tvb(base_off + 12, 4):uint()
    if tran ~= 0 then
        info = info .. " tran=" .. tran
    end
    if seq ~= 0 then
        info = info .. " seq=" .. seq
    end
    if count > 0 then
        info = info .. " [" .. count .. " " .. elem_names[kind][count == 1 and 1 or 2] .. "]"
    end
    if bad then
        info = info .. " MALFORMED: " .. table.concat(why_all, "; ")
    end
    pinfo.cols.info = info
    tree:append_text(": " .. info)
    return total
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, zanvrrp)

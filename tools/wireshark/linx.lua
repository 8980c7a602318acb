-- SPDX-License-Identifier: MIT
-- Shows what `linx capture` has written: who sent what to whom, which signal answers which and after how long.

-- Its fields begin with "linx", but Wireshark has a protocol of that name already.
local linx = Proto("linxipc", "LINX signals")

local f = {
    format = ProtoField.uint8("linx.format", "Version of the packet"),
    byte_order = ProtoField.uint8("linx.little_endian", "Byte order of the payload", base.DEC,
                                  { [0] = "big-endian", [1] = "little-endian" }, 0x01),
    number = ProtoField.uint32("linx.number", "Number"),
    name = ProtoField.string("linx.name", "Signal"),
    size = ProtoField.uint32("linx.size", "Size with the number"),
    from_spid = ProtoField.uint32("linx.from_spid", "Spid of the sender", base.HEX),
    to_spid = ProtoField.uint32("linx.to_spid", "Spid of the receiver", base.HEX),
    from = ProtoField.string("linx.from", "Sender"),
    to = ProtoField.string("linx.to", "Receiver"),
    data = ProtoField.bytes("linx.data", "Payload"),
    answer_in = ProtoField.framenum("linx.answer_in", "Answered in", base.NONE, frametype.RESPONSE),
    answer_to = ProtoField.framenum("linx.answer_to", "Answer to", base.NONE, frametype.REQUEST),
    latency = ProtoField.relative_time("linx.latency", "Time since the request"),
}
linx.fields = f

local cut = ProtoExpert.new("linx.cut", "Only the beginning of the payload was captured", expert.group.UNDECODED,
                            expert.severity.NOTE)
local big_endian = ProtoExpert.new("linx.big_endian", "The payload is of a big-endian machine",
                                   expert.group.PROTOCOL, expert.severity.CHAT)
linx.experts = { cut, big_endian }

linx.prefs.numbers = Pref.string("File of signal names", "",
    "A line for each number: \"2000 ConfigRequest\", or \"2000 ConfigRequest 2001\" where 2001 alone answers it, " ..
    "or \"2002 ConfigChanged -\" where nothing does")

local VERSION = 1
local FIXED_BYTES = 24

local names = {}      -- number to name
local answer_of = {}  -- number to that of its answer, or "-"
local is_answer = {}  -- numbers that answer others

local function read_numbers(path)
    names, answer_of, is_answer = {}, {}, {}
    if path == "" then return end
    local file, reason = io.open(path)
    if not file then
        warn("linx: no names of signals: " .. reason)
        return
    end
    for line in file:lines() do
        local number, name, answer = line:match("^%s*(%w+)%s+([^%s#]+)%s*([%w-]*)")
        number = tonumber(number)
        if number then
            names[number] = name
            if answer == "-" then
                answer_of[number] = "-"
            elseif tonumber(answer) then
                answer_of[number] = tonumber(answer)
                is_answer[tonumber(answer)] = true
            end
        end
    end
    file:close()
end

-- By frame: the requests and answers that belong together.
local request_of = {}
local answer_in = {}
local latency_of = {}
-- By sender and receiver: what has not been answered yet, the oldest first.
local waiting = {}

function linx.init()
    request_of, answer_in, latency_of, waiting = {}, {}, {}, {}
    read_numbers(linx.prefs.numbers)
end

function linx.prefs_changed()
    read_numbers(linx.prefs.numbers)
end

-- Seconds since 1970 are too many for a number to have nanoseconds besides; those since the first frame are not, but
-- begin anew wherever the user wants them to.
local function times_of(pinfo)
    return { absolute = pinfo.abs_ts, relative = pinfo.rel_ts }
end

local function between(first, second)
    local rough = second.absolute - first.absolute
    local precise = second.relative - first.relative
    local seconds = math.abs(precise - rough) < 1e-6 and precise or rough
    local nanoseconds = math.floor(math.abs(seconds) * 1e9 + 0.5)
    local sign = seconds < 0 and -1 or 1
    return NSTime(sign * math.floor(nanoseconds / 1e9), sign * (nanoseconds % 1e9))
end

-- The answer to a request is the next signal back between the same two, one for each; a table of numbers that tells
-- more about them is believed.
local function match(frame, times, number, from, to)
    local sent = waiting[to .. "\0" .. from] or {}
    for i, request in ipairs(sent) do
        local wanted = answer_of[request.number]
        if wanted == number or not (wanted or is_answer[number]) then
            table.remove(sent, i)
            request_of[frame] = request.frame
            answer_in[request.frame] = frame
            latency_of[frame] = between(request.times, times)
            return
        end
    end
    if is_answer[number] or answer_of[number] == "-" then return end
    local key = from .. "\0" .. to
    waiting[key] = waiting[key] or {}
    table.insert(waiting[key], { frame = frame, number = number, times = times })
end

local function is_ours(buffer)
    if buffer:captured_len() < FIXED_BYTES or buffer(0, 1):uint() ~= VERSION then return false end
    local head = buffer(2, 2):uint()
    return head >= FIXED_BYTES + buffer(20, 1):uint() + buffer(21, 1):uint() and head <= buffer:captured_len()
end

function linx.dissector(buffer, pinfo, root)
    if not is_ours(buffer) then return 0 end
    local head, from_bytes, to_bytes = buffer(2, 2):uint(), buffer(20, 1):uint(), buffer(21, 1):uint()
    local from_range = buffer(FIXED_BYTES, from_bytes)
    local to_range = buffer(FIXED_BYTES + from_bytes, to_bytes)
    local from, to = from_range:string(ENC_UTF_8), to_range:string(ENC_UTF_8)
    local number, size = buffer(4, 4):uint(), buffer(8, 4):uint()
    local is_little_endian = buffer(1, 1):uint() % 2 == 1

    if not pinfo.visited then
        match(pinfo.number, times_of(pinfo), number, buffer(12, 4):uint() .. from, buffer(16, 4):uint() .. to)
    end

    local title = names[number] and string.format("%d %s", number, names[number]) or tostring(number)
    pinfo.cols.protocol = "LINX"
    pinfo.cols.src = from
    pinfo.cols.dst = to
    pinfo.cols.info = string.format("%s, %d bytes%s%s", title, size, is_little_endian and "" or ", big-endian",
        request_of[pinfo.number] and ", answers " .. request_of[pinfo.number] or "")

    local tree = root:add(linx, buffer(), string.format("LINX signal %s, %s to %s", title, from, to))
    tree:add(f.format, buffer(0, 1))
    tree:add(f.number, buffer(4, 4))
    if names[number] then tree:add(f.name, buffer(4, 4), names[number]):set_generated() end
    tree:add(f.size, buffer(8, 4))
    tree:add(f.from, from_range, from)
    tree:add(f.from_spid, buffer(12, 4))
    tree:add(f.to, to_range, to)
    tree:add(f.to_spid, buffer(16, 4))
    local order = tree:add(f.byte_order, buffer(1, 1))
    if not is_little_endian then order:add_proto_expert_info(big_endian) end
    if answer_in[pinfo.number] then tree:add(f.answer_in, answer_in[pinfo.number]):set_generated() end
    if request_of[pinfo.number] then
        tree:add(f.answer_to, request_of[pinfo.number]):set_generated()
        tree:add(f.latency, latency_of[pinfo.number]):set_generated()
    end
    if buffer:captured_len() > head then
        tree:add(f.data, buffer(head, buffer:captured_len() - head))
    end
    if buffer:captured_len() < buffer:reported_len() then tree:add_proto_expert_info(cut) end
    return buffer:captured_len()
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, linx)

-- Wireshark dissector for the vendor requests that travel in a hub's HID reports.
--
-- It reads captures of usbmon (with either header), of USBPcap and of QEMU. It is a post-dissector, so
-- that Wireshark's own USB and HID dissectors still work on the same packets. A device counts as a hub
-- from the first packet on that shows the hubs' vendor id in its device descriptor or in an enable
-- request; what came before that is not dissected.

local hub = Proto("qzhid", "USB hub vendor request")

local kVendor = 0x2E7C

-- Layouts of the two report channels. Offsets count from the report ID, which is byte 0 also where it
-- does not travel because it is 0.
local channels = {
  [0x00] = { output = 0x00, input = 0x00, data = 65, answer = 1 },
  [0xF0] = { output = 0xF0, input = 0xF1, data = 64, answer = 64 },
}

-- The requests, by bmRequestType and bRequest. `phase`: what an update does that sends it.
local requests = {
  [0x4002] = { name = "Enable vendor commands", show = "enable" },
  [0xC009] = { name = "Read status", answer = "status", phase = "preparing" },
  [0x4000] = { name = "Reset to the loader", phase = "entering the loader" },
  [0x40E8] = { name = "Erase flash", show = "address", phase = "erasing" },
  [0x40C8] = { name = "Write flash", show = "address", data = true, phase = "writing" },
  [0xC0D8] = { name = "Read flash", show = "address", answer = "data", phase = "checking" },
  [0x40D9] = { name = "Validate image", phase = "checking" },
  [0x40E9] = { name = "Reset to the firmware", phase = "starting the firmware" },
  [0x4008] = { name = "Set download slave", show = "slave" },
  [0x4006] = { name = "Set I2C clock", show = "clock" },
  [0x40F6] = { name = "Configure I2C", data = true },
  [0x40C6] = { name = "Write I2C", show = "i2c", data = true },
  [0x40D6] = { name = "Read I2C", show = "i2c", answer = "data", is_in = true },
  [0xC0D6] = { name = "Read I2C", show = "i2c", answer = "data" },
  [0x40DC] = { name = "Write I2C block", show = "block", data = true },
  [0xC0EC] = { name = "Read I2C block", show = "block", answer = "data" },
  [0x40F1] = { name = "Write bridge flash", show = "address", data = true },
  [0x00CF] = { name = "Stage bridge flash", show = "address", data = true },
  [0x40F4] = { name = "Erase bridge flash" },
  [0xC0F3] = { name = "Read bridge flash status", answer = "bridge" },
  [0x40F2] = { name = "Send raw block", raw = true },
  [0x40F5] = { name = "Send raw block with data", raw = true, data = true },
  [0xC004] = { name = "Read GPIO line", show = "line", answer = "level" },
  [0x400C] = { name = "Write GPIO line", show = "level" },
  [0x4004] = { name = "Set hub GPIO", show = "hub_line" },
}

local names = {}
for key, request in pairs(requests) do names[key] = request.name end

local fields = {
  key = ProtoField.uint16("qzhid.request", "Request", base.HEX, names),
  type = ProtoField.uint8("qzhid.request.type", "bmRequestType", base.HEX),
  code = ProtoField.uint8("qzhid.request.code", "bRequest", base.HEX),
  value = ProtoField.uint16("qzhid.request.value", "wValue", base.HEX),
  index = ProtoField.uint16("qzhid.request.index", "wIndex", base.HEX),
  length = ProtoField.uint16("qzhid.request.length", "wLength", base.DEC),
  channel = ProtoField.uint8("qzhid.channel", "Report channel", base.DEC),
  phase = ProtoField.string("qzhid.phase", "Phase of the update"),
  enable = ProtoField.uint16("qzhid.enable", "Enable value", base.DEC),
  address = ProtoField.uint32("qzhid.address", "Address", base.HEX),
  mode = ProtoField.uint8("qzhid.slave.mode", "Mode", base.HEX),
  slave = ProtoField.uint8("qzhid.slave.address", "Slave address", base.HEX),
  clock = ProtoField.uint16("qzhid.clock", "High clock", base.DEC),
  target = ProtoField.uint8("qzhid.i2c.target", "I2C target", base.HEX),
  memory = ProtoField.bytes("qzhid.i2c.memory", "Memory address"),
  memory_bytes = ProtoField.uint8("qzhid.i2c.memory_bytes", "Memory address bytes", base.DEC),
  speed = ProtoField.uint8("qzhid.i2c.speed", "Speed", base.DEC, nil, 0x7F),
  configured = ProtoField.bool("qzhid.i2c.configured", "Configured", 8, nil, 0x80),
  command = ProtoField.uint8("qzhid.block.command", "Block command", base.HEX),
  line = ProtoField.uint16("qzhid.gpio.line", "Line", base.DEC),
  level = ProtoField.uint8("qzhid.gpio.level", "Level", base.DEC),
  data = ProtoField.bytes("qzhid.data", "Data"),
  raw = ProtoField.bytes("qzhid.raw", "Raw header"),
  bridge = ProtoField.uint8("qzhid.bridge.status", "Bridge flash status", base.DEC,
    { [0] = "ready", [1] = "busy" }),
  vid = ProtoField.uint16("qzhid.status.vid", "Vendor id", base.HEX),
  pid = ProtoField.uint16("qzhid.status.pid", "Product id", base.HEX),
  version = ProtoField.uint16("qzhid.status.version", "Firmware version", base.HEX),
  isp = ProtoField.bool("qzhid.status.isp", "ISP validation supported", 8, nil, 0x02),
  runs_firmware = ProtoField.bool("qzhid.status.firmware", "Runs its firmware", 8,
    { "yes", "no, it is in its loader" }, 0x02),
  dual_bank = ProtoField.bool("qzhid.status.dual_bank", "Dual-bank flash", 8, nil, 0x80),
  result = ProtoField.string("qzhid.result", "Result"),
  request_in = ProtoField.framenum("qzhid.request_in", "Request in", base.NONE,
    frametype.REQUEST),
  response_in = ProtoField.framenum("qzhid.response_in", "Answer in", base.NONE,
    frametype.RESPONSE),
}
hub.fields = fields

local experts = {
  unknown = ProtoExpert.new("qzhid.unknown", "Unknown vendor request", expert.group.UNDECODED,
    expert.severity.WARN),
  short = ProtoExpert.new("qzhid.short", "Report too short for its request", expert.group.MALFORMED,
    expert.severity.ERROR),
  stalled = ProtoExpert.new("qzhid.stalled", "The hub refused the request",
    expert.group.RESPONSE_CODE, expert.severity.WARN),
  failed = ProtoExpert.new("qzhid.failed", "The transfer failed", expert.group.RESPONSE_CODE,
    expert.severity.ERROR),
  write_failed = ProtoExpert.new("qzhid.write_failed", "A write to the flash failed",
    expert.group.RESPONSE_CODE, expert.severity.ERROR),
}
hub.experts = experts

local encapsulation = Field.new("frame.encap_type")
local descriptor_vendor = Field.new("usb.idVendor")

-- What is known of the capture so far; packets that were dissected once have their place in `packets`.
local hubs, submitted, waiting, packets

function hub.init()
  hubs = {}       -- by device: whether it is a hub
  submitted = {}  -- by the id of a transfer: what it carries
  waiting = {}    -- by device: the request whose answer is still to be read
  packets = {}    -- by packet number: what is shown
end

-- Transfers: each reader returns the same description of a packet, or nil.
--   id, device, is_complete, status, transfer ("control" or "interrupt"), endpoint, setup, payload

local function usbmon(header_length)
  return function(tvb)
    if tvb:len() < header_length then return nil end
    local kind, transfer = tvb(8, 1):uint(), tvb(9, 1):uint()
    local packet = {
      id = tostring(tvb(0, 8):le_uint64()),
      device = tvb(12, 2):le_uint() .. "." .. tvb(11, 1):uint(),
      is_complete = kind ~= 0x53,  -- "S", a submission
      status = tvb(28, 4):le_int(),
      transfer = transfer == 2 and "control" or transfer == 1 and "interrupt",
      endpoint = tvb(10, 1):uint(),
    }
    if tvb(14, 1):uint() == 0 and not packet.is_complete and packet.transfer == "control" then
      packet.setup = tvb(40, 8)
    end
    if tvb:len() > header_length then packet.payload = tvb(header_length) end
    return packet
  end
end

-- Status codes of Windows, as far as errno has a word for them.
local function errno(status)
  if status == 0 then return 0 end
  if status == 0xC0000004 then return -32 end  -- USBD_STATUS_STALL_PID
  return -71
end

local function usbpcap(tvb)
  if tvb:len() < 27 then return nil end
  local header_length, transfer = tvb(0, 2):le_uint(), tvb(22, 1):uint()
  if tvb:len() < header_length then return nil end
  local packet = {
    id = tostring(tvb(2, 8):le_uint64()),
    device = tvb(17, 2):le_uint() .. "." .. tvb(19, 2):le_uint(),
    is_complete = tvb(16, 1):bitfield(7, 1) == 1,
    status = errno(tvb(10, 4):le_uint()),
    transfer = transfer == 2 and "control" or transfer == 1 and "interrupt",
    endpoint = tvb(21, 1):uint(),
  }
  local at = header_length
  if packet.transfer == "control" and not packet.is_complete and tvb:len() >= at + 8 then
    packet.setup = tvb(at, 8)
    at = at + 8
  end
  if tvb:len() > at then packet.payload = tvb(at) end
  return packet
end

local readers = {
  [wtap.USB_LINUX] = usbmon(48),
  [wtap.USB_LINUX_MMAPPED] = usbmon(64),
  [wtap.USBPCAP] = usbpcap,
}

-- The report that a submission carries or asks for: "output" or "input", and its ID.
local function report_of(packet)
  if packet.transfer == "interrupt" then
    local id = packet.payload and packet.payload(0, 1):uint()
    return packet.endpoint < 0x80 and "output" or nil, id == 0xF0 and id or 0
  end
  local setup = packet.setup
  if not setup then return nil end
  local code = setup(0, 1):uint() * 256 + setup(1, 1):uint()
  local id, kind = setup(2, 1):uint(), setup(3, 1):uint()
  if code == 0x2109 and kind == 2 then return "output", id end  -- SET_REPORT
  if code == 0xA101 and kind == 1 then return "input", id end   -- GET_REPORT
  return nil
end

-- Bytes of a report, counted from its ID; nil when the report has fewer. A report ID of 0 does not
-- travel.
local function bytes(payload, id, from, count)
  local at = id == 0 and from - 1 or from
  if not payload or at < 0 or payload:len() < at + count then return nil end
  return payload(at, count)
end

local function take_request(packet, id, number)
  local channel, setup = channels[id], bytes(packet.payload, id, 1, 8)
  if not channel or not setup then return nil end
  local key = setup(0, 2):uint()
  local is_enable = key == 0x4002 and setup(4, 2):le_uint() == kVendor
  if is_enable then hubs[packet.device] = true end
  if not hubs[packet.device] then return nil end
  local definition = requests[key] or {}
  local is_in = definition.is_in or key >= 0x8000
  local is_i2c = definition.show == "i2c"
  return {
    kind = "request", number = number, key = key, channel = channel, is_in = is_in,
    definition = definition, phase = definition.phase,
    length = is_i2c and setup(6, 1):uint() or setup(6, 2):le_uint(),
    name = definition.name or string.format("Unknown request 0x%04X", key),
  }
end

-- On the first pass through the capture: what the packet is, which is nil for most.
local function classify(packet, number)
  if packet.is_complete then
    local before = submitted[packet.id]
    submitted[packet.id] = nil
    if not before then return nil end
    local request = before.request
    if before.kind == "answer" then
      request.answered_in = number
      return { kind = "answer", request = request, status = packet.status }
    end
    request.completed_in = number
    return { kind = "completion", request = request, status = packet.status }
  end
  local direction, id = report_of(packet)
  if direction == "output" then
    local request = take_request(packet, id, number)
    if not request then return nil end
    submitted[packet.id] = { kind = "completion", request = request }
    waiting[packet.device] = request
    return request
  end
  local request = waiting[packet.device]
  if direction == "input" and request and request.channel.input == id then
    submitted[packet.id] = { kind = "answer", request = request }
    return { kind = "asking", request = request }
  end
  return nil
end

-- How the fields of a request are shown. Each takes the tree, the setup bytes and the request.
local show = {}
function show.enable(tree, setup) tree:add_le(fields.enable, setup(2, 2)) end
function show.address(tree, setup, request)
  tree:add_le(fields.address, setup(2, 4))
  request.detail = string.format("0x%X", setup(2, 4):le_uint())
end
function show.slave(tree, setup)
  tree:add(fields.mode, setup(2, 1))
  tree:add(fields.slave, setup(3, 1))
end
function show.clock(tree, setup) tree:add_le(fields.clock, setup(2, 2)) end
function show.i2c(tree, setup, request, report)
  local options = report(1, 11)  -- from the setup packet on
  local count = options(9, 1):uint()
  tree:add(fields.target, options(8, 1))
  tree:add(fields.memory_bytes, options(9, 1))
  if count > 0 then tree:add(fields.memory, options(2, math.min(count, 4))) end
  tree:add(fields.configured, options(10, 1))
  tree:add(fields.speed, options(10, 1))
  request.detail = string.format("0x%02X", options(8, 1):uint())
end
function show.block(tree, setup, request)
  tree:add(fields.target, setup(2, 1))
  tree:add(fields.command, setup(3, 1))
  request.detail = string.format("0x%02X", setup(2, 1):uint())
end
function show.line(tree, setup, request)
  tree:add(fields.line, setup(3, 1))
  request.detail = tostring(setup(3, 1):uint())
end
function show.level(tree, setup, request)
  show.line(tree, setup, request)
  tree:add(fields.level, setup(5, 1))
end
function show.hub_line(tree, setup, request)
  tree:add_le(fields.line, setup(4, 2))
  tree:add(fields.level, setup(3, 1))
  request.detail = tostring(setup(4, 2):le_uint())
end

-- How the answer to a request is shown.
local answers = {}
function answers.data(tree, answer) tree:add(fields.data, answer) end
function answers.bridge(tree, answer) tree:add(fields.bridge, answer(0, 1)) end
function answers.level(tree, answer) tree:add(fields.level, answer(0, 1)) end
function answers.status(tree, answer)
  if answer:len() < 16 then return end
  tree:add(fields.vid, answer(0, 2))
  tree:add(fields.pid, answer(4, 2))
  tree:add(fields.version, answer(10, 2))
  tree:add(fields.isp, answer(13, 1))
  tree:add(fields.runs_firmware, answer(15, 1))
  tree:add(fields.dual_bank, answer(15, 1))
end

local function show_request(tree, packet, request)
  local id, definition = request.channel.output, request.definition
  local setup = bytes(packet.payload, id, 1, 8)
  tree:add(fields.key, setup(0, 2))
  tree:add(fields.channel, id == 0 and 1 or 2):set_generated()
  if request.phase then tree:add(fields.phase, request.phase):set_generated() end
  if definition.raw then
    tree:add(fields.raw, bytes(packet.payload, id, 1, request.channel.data - 1))
  else
    tree:add(fields.type, setup(0, 1))
    tree:add(fields.code, setup(1, 1))
    tree:add_le(fields.value, setup(2, 2))
    tree:add_le(fields.index, setup(4, 2))
    if definition.show ~= "i2c" then tree:add_le(fields.length, setup(6, 2)) end
  end
  if not definition.name then tree:add_proto_expert_info(experts.unknown) end
  if definition.show then
    local function report(from, count) return bytes(packet.payload, id, from, count) end
    show[definition.show](tree, setup, request, report)
  end
  local length = request.key == 0x40F5 and 128 or request.length
  if definition.data and length > 0 then
    local data = bytes(packet.payload, id, request.channel.data, length)
    if data then
      tree:add(fields.data, data)
    else
      tree:add_proto_expert_info(experts.short)
    end
  end
  if request.answered_in then tree:add(fields.response_in, request.answered_in):set_generated() end
end

local function show_result(tree, status, request)
  local isWrite = request.key == 0x40C8 or request.key == 0x40F1 or request.key == 0x00CF
  if status == 0 then
    tree:add(fields.result, "done"):set_generated()
  elseif status == -32 then
    tree:add(fields.result, "stalled"):set_generated()
    tree:add_proto_expert_info(isWrite and experts.write_failed or experts.stalled)
  else
    tree:add(fields.result, "failed with " .. status):set_generated()
    tree:add_proto_expert_info(isWrite and experts.write_failed or experts.failed)
  end
end

local function show_answer(tree, packet, request, status)
  show_result(tree, status, request)
  local answer = bytes(packet.payload, request.channel.input, request.channel.answer, request.length)
  local how = request.definition.answer
  if status == 0 and how and answer and request.length > 0 then answers[how](tree, answer) end
end

local function show_packet(tree, packet, shown)
  if shown.kind == "request" then return show_request(tree, packet, shown) end
  tree:add(fields.request_in, shown.request.number):set_generated()
  if shown.kind == "completion" then show_result(tree, shown.status, shown.request) end
  if shown.kind == "answer" then show_answer(tree, packet, shown.request, shown.status) end
end

local words = { request = "", completion = " completed", asking = " answer asked", answer = " answer" }

function hub.dissector(tvb, pinfo, root)
  local reader = readers[encapsulation().value]
  local packet = reader and reader(tvb)
  if not packet then return end
  local vendor = descriptor_vendor()
  if vendor and vendor.value == kVendor then hubs[packet.device] = true end
  if not pinfo.visited then packets[pinfo.number] = classify(packet, pinfo.number) end
  local shown = packets[pinfo.number]
  if not shown then return end
  local request = shown.request or shown
  local tree = root:add(hub, tvb(), "Hub request: " .. request.name .. words[shown.kind])
  show_packet(tree, packet, shown)
  local detail = request.detail and " " .. request.detail or ""
  pinfo.cols.info:set(request.name .. words[shown.kind] .. detail)
  pinfo.cols.protocol:set("HUB")
end

register_postdissector(hub)

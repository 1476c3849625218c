// Board behaviour behind the device nodes: one request table per node, each
// request with its record layout (for the journal) and a handler that reads
// or changes the board state. State files used:
//   nvram/<name>                       variable value (+ newline)
//   i2c/<bus>/0x<addr>/0x<reg>         register value; the device exists if
//                                      its directory does
//   cpureg/0x<addr>                    CPU register value
//   sata/<port>/0x<reg>                SATA bridge register (port dir = present)
//   gpio/<group>.<bit>, gpio/<group>.<bit>.mode   line level and mode
//   keys/reset                         "pressed" or "released" [delay_ms=N]
//   keys/<code>                        "pressed" or "released"
//   subcard/<n>/{status,type,pcb}      sub-card answers (dir = online)
//   storcard/<n>/{kind,board,pcb,mcu,status}   storage card (dir = online)
//   switch/<index>/0x<reg>             switch register (dir = present)
//   rmc/mode                           remote-control receiver mode
//   runtime/first_use, runtime/total_used, runtime/record
//   disk/present, disk/capacity        per-slot words for cabinet 0
//   usb/<port>                         name=, present=, id=
//   proc/watchdog_status               rewritten when the watchdog is armed
#include "nodes.h"

#include "../common/defaults.h"
#include "../common/records.h"
#include "../common/state.h"
#include "../common/sys.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace bsim {

namespace {

std::string hex2(unsigned v)
{
    char buf[8];
    std::snprintf(buf, sizeof buf, "0x%02x", v & 0xffu);
    return buf;
}

std::string hex8(uint64_t v)
{
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%08llx", static_cast<unsigned long long>(v));
    return buf;
}

std::string num_line(int64_t v)
{
    return std::to_string(v) + "\n";
}

// ---- /dev/hal_nvram ----

constexpr size_t kNameLen = 64;
constexpr size_t kValueOff = 64;
constexpr size_t kValueLen = 5120;

bool valid_var(const std::string &n)
{
    return !n.empty() && n.find('/') == std::string::npos && n != "." && n != "..";
}

// Once nvram/ exists on disk it is the whole truth (a variable removed from
// it is unset); until then the defaults answer. The first access copies the
// defaults in, so both views agree.
void nvram_seed()
{
    if (state_dir().empty())
        return;
    struct stat st {};
    if (sys::stat(state_path("nvram").c_str(), &st) == 0)
        return;
    for (size_t i = 0; i < kDefaultFileCount; ++i) {
        if (std::string_view(kDefaultFiles[i].path).starts_with("nvram/"))
            state_materialize(kDefaultFiles[i].path);
    }
    sys::mkdir(state_path("nvram").c_str(), 0755);
}

int nvram_get(Call &c)
{
    std::string name = get_text(c.rec, 0, kNameLen);
    if (!valid_var(name))
        return fail(c, EINVAL);
    nvram_seed();
    auto value =
        state_dir().empty() ? state_read("nvram/" + name) : state_read_own("nvram/" + name);
    if (!value)
        return fail(c, ENOENT);
    if (!value->empty() && value->back() == '\n')
        value->pop_back();
    put_text(c.rec, kValueOff, kValueLen, *value);
    return 0;
}

int nvram_set(Call &c)
{
    std::string name = get_text(c.rec, 0, kNameLen);
    if (!valid_var(name))
        return fail(c, EINVAL);
    nvram_seed();
    return stored(c, state_write("nvram/" + name, get_text(c.rec, kValueOff, kValueLen) + "\n"));
}

constexpr Field kEnvGet[] = {{"name", 0, kNameLen, Kind::Text, kIn},
                             {"value", kValueOff, kValueLen, Kind::Text, kOut}};
constexpr Field kEnvSet[] = {{"name", 0, kNameLen, Kind::Text, kIn},
                             {"value", kValueOff, kValueLen, Kind::Text, kIn}};
constexpr Request kNvram[] = {make_request(0x40614, kEnvGet, nvram_get),
                              make_request(0x40615, kEnvSet, nvram_set)};

// ---- /dev/hal_misc ----

std::string i2c_dev(const void *rec)
{
    return "i2c/" + std::to_string(get_u8(rec, 0)) + "/" + hex2(get_u8(rec, 1));
}

int i2c_read(Call &c)
{
    std::string dev = i2c_dev(c.rec);
    if (!state_exists(dev))
        return fail(c, ENXIO);  // no device answers at that address
    put_u32(c.rec, 4, static_cast<uint32_t>(state_num(dev + "/" + hex2(get_u8(c.rec, 2)), 0)));
    return 0;
}

int i2c_write(Call &c)
{
    std::string dev = i2c_dev(c.rec);
    if (!state_exists(dev))
        return fail(c, ENXIO);
    return stored(c,
                  state_write(dev + "/" + hex2(get_u8(c.rec, 2)), hex8(get_u32(c.rec, 4)) + "\n"));
}

int cpureg_read(Call &c)
{
    put_u32(c.rec, 4, static_cast<uint32_t>(state_num("cpureg/" + hex8(get_u32(c.rec, 0)), 0)));
    return 0;
}

int cpureg_write(Call &c)
{
    return stored(c,
                  state_write("cpureg/" + hex8(get_u32(c.rec, 0)), hex8(get_u32(c.rec, 4)) + "\n"));
}

int sata_read(Call &c)
{
    std::string port = "sata/" + std::to_string(get_u64(c.rec, 0));
    if (!state_exists(port))
        return fail(c, ENODEV);
    put_u32(c.rec, 16,
            static_cast<uint32_t>(
                state_num(port + "/" + hex2(static_cast<unsigned>(get_u64(c.rec, 8))), 0)));
    return 0;
}

constexpr Field kI2cRead[] = {{"bus", 0, 1, Kind::U8, kIn},
                              {"addr", 1, 1, Kind::Hex8, kIn},
                              {"reg", 2, 1, Kind::Hex8, kIn},
                              {"len", 8, 4, Kind::U32, kIn},
                              {"data", 4, 4, Kind::Hex32, kOut}};
constexpr Field kI2cWrite[] = {{"bus", 0, 1, Kind::U8, kIn},
                               {"addr", 1, 1, Kind::Hex8, kIn},
                               {"reg", 2, 1, Kind::Hex8, kIn},
                               {"data", 4, 4, Kind::Hex32, kIn},
                               {"len", 8, 4, Kind::U32, kIn}};
constexpr Field kRegRead[] = {{"addr", 0, 4, Kind::Hex32, kIn}, {"value", 4, 4, Kind::Hex32, kOut}};
constexpr Field kRegWrite[] = {{"addr", 0, 4, Kind::Hex32, kIn}, {"value", 4, 4, Kind::Hex32, kIn}};
constexpr Field kSata[] = {{"port", 0, 8, Kind::U64, kIn},
                           {"reg", 8, 8, Kind::Hex64, kIn},
                           {"value", 16, 4, Kind::Hex32, kOut}};
constexpr Request kMisc[] = {
    make_request(0x40608, kI2cRead, i2c_read),    make_request(0x40609, kI2cWrite, i2c_write),
    make_request(0x70106, kRegRead, cpureg_read), make_request(0x70107, kRegWrite, cpureg_write),
    make_request(0x40505, kSata, sata_read),
};

// ---- /dev/hal_gpio ----

std::string gpio_line(const void *rec)
{
    return "gpio/" + std::to_string(get_u32(rec, 0)) + "." + std::to_string(get_u32(rec, 4));
}

int gpio_write(Call &c)
{
    return stored(c, state_write(gpio_line(c.rec), num_line(get_u32(c.rec, 8))));
}

int gpio_read(Call &c)
{
    put_u32(c.rec, 8, static_cast<uint32_t>(state_num(gpio_line(c.rec), 0)));
    return 0;
}

int gpio_mode(Call &c)
{
    return stored(c, state_write(gpio_line(c.rec) + ".mode", num_line(get_u32(c.rec, 8))));
}

// The reset key: the argument is a plain number and is never followed. The
// driver answers once the key is seen pressed (after delay_ms, if set).
int reset_key(Call &c)
{
    int64_t delay = state_keynum("keys/reset", "delay_ms", 0);
    if (delay > 0) {
        struct timespec ts {
            static_cast<time_t>(delay / 1000), static_cast<long>(delay % 1000) * 1000000L
        };
        while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
        }
    }
    if (state_word("keys/reset", "pressed") != "pressed")
        return fail(c, ETIMEDOUT);
    return 0;
}

int chip_reset(Call &)
{
    return 0;
}

// Sub-cards and storage cards answer only when their directory exists.
int card_value(Call &c, const char *kind, const char *field)
{
    std::string dir = std::string(kind) + "/" + std::to_string(get_u32(c.rec, 0));
    if (!state_exists(dir))
        return fail(c, ENODEV);
    put_u32(c.rec, 4, static_cast<uint32_t>(state_num(dir + "/" + field, 0)));
    return 0;
}

int sub_status(Call &c)
{
    return card_value(c, "subcard", "status");
}
int sub_type(Call &c)
{
    return card_value(c, "subcard", "type");
}
int sub_pcb(Call &c)
{
    return card_value(c, "subcard", "pcb");
}

constexpr Field kGpioWrite[] = {{"group", 0, 4, Kind::U32, kIn},
                                {"bit", 4, 4, Kind::U32, kIn},
                                {"value", 8, 4, Kind::U32, kIn}};
constexpr Field kGpioRead[] = {{"group", 0, 4, Kind::U32, kIn},
                               {"bit", 4, 4, Kind::U32, kIn},
                               {"value", 8, 4, Kind::U32, kOut}};
constexpr Field kGpioMode[] = {
    {"group", 0, 4, Kind::U32, kIn}, {"bit", 4, 4, Kind::U32, kIn}, {"mode", 8, 4, Kind::U32, kIn}};
constexpr Field kPlain[] = {{"arg", 0, 0, Kind::Plain, kIn}};
constexpr Field kChipReset[] = {
    {"pos", 0, 4, Kind::U32, kIn}, {"chip", 4, 4, Kind::U32, kIn}, {"zero", 8, 4, Kind::U32, kIn}};
constexpr Field kCard[] = {{"card", 0, 4, Kind::U32, kIn}, {"value", 4, 4, Kind::U32, kOut}};
constexpr Request kGpio[] = {
    make_request(0x40610, kGpioWrite, gpio_write), make_request(0x40611, kGpioRead, gpio_read),
    make_request(0x4061F, kGpioMode, gpio_mode),   make_request(0x40636, kPlain, reset_key),
    make_request(0x70103, kChipReset, chip_reset), make_request(0x40627, kCard, sub_status),
    make_request(0x40628, kCard, sub_type),        make_request(0x40629, kCard, sub_pcb),
};

// ---- /dev/hal_rmc ----

int rmc_mode(Call &c)
{
    return stored(c, state_write("rmc/mode", num_line(get_u32(c.rec, 0))));
}

// Key state as the driver reports it: 0 while pressed.
int key_poll(Call &c)
{
    std::string word = state_word("keys/" + std::to_string(get_u32(c.rec, 0)), "released");
    put_u32(c.rec, 8, word == "pressed" ? 0 : 1);
    return 0;
}

constexpr Field kRmc[] = {{"mode", 0, 4, Kind::U32, kIn}, {"pad", 4, 4, Kind::U32, kIn}};
constexpr Field kKey[] = {{"key", 0, 4, Kind::U32, kIn}, {"state", 8, 4, Kind::U32, kOut}};
constexpr Request kRmcReqs[] = {make_request(0x40113, kRmc, rmc_mode),
                                make_request(0x4010D, kKey, key_poll),
                                make_request(0x4010C, kKey, key_poll)};

// ---- /dev/hal_watchdog ----

int64_t watchdog_field(const std::string &text, const std::string &key, int64_t def)
{
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        std::string line =
            text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        pos = (end == std::string::npos) ? text.size() : end + 1;
        size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        std::string k = line.substr(0, line.find_last_not_of(' ', colon - 1) + 1);
        int64_t v = 0;
        if (k == key && parse_num(line.substr(colon + 1), v))
            return v;
    }
    return def;
}

// Arming (mode != 0) starts the countdown from the configured timeout;
// mode 0 stops the watchdog.
int watchdog_arm(Call &c)
{
    unsigned mode = get_u32(c.rec, 0);
    std::string now = state_read("proc/watchdog_status").value_or("");
    auto timeout = static_cast<unsigned>(watchdog_field(now, "timeout", 30));
    return stored(c, state_write("proc/watchdog_status",
                                 watchdog_status_text(mode, mode ? timeout : 0, timeout)));
}

constexpr Field kWatchdog[] = {{"mode", 0, 4, Kind::U32, kIn}, {"rest", 4, 8, Kind::Bytes, kIn}};
constexpr Request kWatchdogReqs[] = {make_request(0x70108, kWatchdog, watchdog_arm)};

// ---- /dev/hal_switch ----

int switch_read(Call &c)
{
    std::string sw = "switch/" + std::to_string(get_u32(c.rec, 8));
    if (!state_exists(sw))
        return fail(c, ENODEV);
    put_u32(c.rec, 12, static_cast<uint32_t>(state_num(sw + "/" + hex2(get_u32(c.rec, 4)), 0)));
    return 0;
}

constexpr Field kSwitch[] = {{"zero", 0, 4, Kind::U32, kIn},
                             {"reg", 4, 4, Kind::Hex32, kIn},
                             {"switch", 8, 4, Kind::U32, kIn},
                             {"value", 12, 4, Kind::Hex32, kOut}};
constexpr Request kSwitchReqs[] = {make_request(0x40809, kSwitch, switch_read)};

// ---- /dev/hal_sc ----

int sc_kind(Call &c)
{
    return card_value(c, "storcard", "kind");
}
int sc_board(Call &c)
{
    return card_value(c, "storcard", "board");
}
int sc_pcb(Call &c)
{
    return card_value(c, "storcard", "pcb");
}
int sc_mcu(Call &c)
{
    return card_value(c, "storcard", "mcu");
}
int sc_status(Call &c)
{
    return card_value(c, "storcard", "status");
}

constexpr Request kScReqs[] = {
    make_request(0x40622, kCard, sc_kind),   make_request(0x30107, kCard, sc_board),
    make_request(0x30100, kCard, sc_pcb),    make_request(0x30106, kCard, sc_mcu),
    make_request(0x40626, kCard, sc_status),
};

// ---- /dev/hal_runtime ----

int first_use_get(Call &c)
{
    int y = 0, m = 0, d = 0;
    std::string t = state_word("runtime/first_use", "2000-00-00");
    if (std::sscanf(t.c_str(), "%d-%d-%d", &y, &m, &d) != 3)
        return fail(c, EIO);
    put_u32(c.rec, 0, static_cast<uint32_t>(y - 2000));
    put_u32(c.rec, 4, static_cast<uint32_t>(m));
    put_u32(c.rec, 8, static_cast<uint32_t>(d));
    return 0;
}

int first_use_set(Call &c)
{
    char buf[48];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d\n",
                  static_cast<int32_t>(get_u32(c.rec, 0)) + 2000,
                  static_cast<int32_t>(get_u32(c.rec, 4)), static_cast<int32_t>(get_u32(c.rec, 8)));
    return stored(c, state_write("runtime/first_use", buf));
}

int total_get(Call &c)
{
    put_u32(c.rec, 0, static_cast<uint32_t>(state_keynum("runtime/total_used", "days", 0)));
    put_u32(c.rec, 4, static_cast<uint32_t>(state_keynum("runtime/total_used", "hours", 0)));
    return 0;
}

int total_set(Call &c)
{
    std::string v = "days=" + std::to_string(static_cast<int32_t>(get_u32(c.rec, 0))) +
                    " hours=" + std::to_string(static_cast<int32_t>(get_u32(c.rec, 4))) + "\n";
    return stored(c, state_write("runtime/total_used", v));
}

int record_on(Call &c)
{
    return stored(c, state_write("runtime/record", "on\n"));
}
int record_off(Call &c)
{
    return stored(c, state_write("runtime/record", "off\n"));
}

constexpr Field kDateOut[] = {{"year", 0, 4, Kind::S32, kOut},
                              {"month", 4, 4, Kind::S32, kOut},
                              {"day", 8, 4, Kind::S32, kOut}};
constexpr Field kDateIn[] = {
    {"year", 0, 4, Kind::S32, kIn}, {"month", 4, 4, Kind::S32, kIn}, {"day", 8, 4, Kind::S32, kIn}};
constexpr Field kTotalOut[] = {{"days", 0, 4, Kind::S32, kOut}, {"hours", 4, 4, Kind::S32, kOut}};
constexpr Field kTotalIn[] = {{"days", 0, 4, Kind::S32, kIn}, {"hours", 4, 4, Kind::S32, kIn}};
constexpr Field kRecord[] = {{"bytes", 0, 24, Kind::Bytes, kIn}};
constexpr Request kRuntimeReqs[] = {
    make_request(0x30209, kDateOut, first_use_get), make_request(0x3020A, kDateIn, first_use_set),
    make_request(0x3020B, kTotalOut, total_get),    make_request(0x3020C, kTotalIn, total_set),
    make_request(0x3020D, kRecord, record_on),      make_request(0x3020E, kRecord, record_off),
};

// ---- /dev/harddisk ----

constexpr size_t kCabinets = 3, kSlots = 24;

// Word s of a per-slot list file, as a number (missing words are 0).
int64_t slot_word(const std::string &rel, size_t s)
{
    std::string text = state_read(rel).value_or("");
    size_t pos = 0;
    for (size_t i = 0;; ++i) {
        size_t b = text.find_first_not_of(" \t\r\n", pos);
        if (b == std::string::npos)
            return 0;
        size_t e = text.find_first_of(" \t\r\n", b);
        if (i == s) {
            int64_t v = 0;
            return parse_num(text.substr(b, e == std::string::npos ? std::string::npos : e - b), v)
                       ? v
                       : 0;
        }
        if (e == std::string::npos)
            return 0;
        pos = e;
    }
}

int disk_present(Call &c)
{
    std::memset(c.rec, 0, kCabinets * kSlots);
    for (size_t s = 0; s < kSlots; ++s)
        put_u8(c.rec, s, slot_word("disk/present", s) ? 1 : 0);
    return 0;
}

int disk_capacity(Call &c)
{
    constexpr size_t kRecLen = 96;
    std::memset(c.rec, 0, kCabinets * kSlots * kRecLen);
    for (size_t s = 0; s < kSlots; ++s)
        put_u64(c.rec, s * kRecLen + 80, static_cast<uint64_t>(slot_word("disk/capacity", s)));
    return 0;
}

int usb_info(Call &c)
{
    constexpr size_t kRecLen = 128, kPorts = 8;
    std::memset(c.rec, 0, kRecLen * kPorts);
    for (size_t p = 0; p < kPorts; ++p) {
        std::string rel = "usb/" + std::to_string(p);
        put_text(c.rec, p * kRecLen, 20, state_key(rel, "name", ""));
        put_u32(c.rec, p * kRecLen + 20, static_cast<uint32_t>(state_keynum(rel, "present", -1)));
        put_u32(c.rec, p * kRecLen + 36, static_cast<uint32_t>(state_keynum(rel, "id", 0)));
    }
    return 0;
}

constexpr Field kPresent[] = {{"cabinet0", 0, kSlots, Kind::Bytes, kOut}};
constexpr Field kCapacity[] = {{"capacity0", 80, 8, Kind::U64, kOut}};
constexpr Field kUsb[] = {{"name0", 0, 20, Kind::Text, kOut},
                          {"present0", 20, 4, Kind::S32, kOut},
                          {"name1", 128, 20, Kind::Text, kOut},
                          {"present1", 148, 4, Kind::S32, kOut}};
constexpr Request kDiskReqs[] = {make_request(0x40500, kPresent, disk_present),
                                 make_request(0x40510, kCapacity, disk_capacity),
                                 make_request(0x40504, kUsb, usb_info)};

// ---- node table ----

struct NodeTable {
    const char *path;
    const Request *reqs;
    size_t count;
};

template <size_t N>
constexpr NodeTable node(const char *path, const Request (&reqs)[N])
{
    return NodeTable{path, reqs, N};
}

constexpr NodeTable kNodes[] = {
    node("/dev/hal_nvram", kNvram),
    node("/dev/hal_misc", kMisc),
    node("/dev/hal_gpio", kGpio),
    node("/dev/hal_rmc", kRmcReqs),
    node("/dev/hal_watchdog", kWatchdogReqs),
    node("/dev/hal_switch", kSwitchReqs),
    node("/dev/hal_sc", kScReqs),
    node("/dev/hal_runtime", kRuntimeReqs),
    node("/dev/harddisk", kDiskReqs),
};

const Request *find_request(const char *path, unsigned long req)
{
    for (const NodeTable &n : kNodes) {
        if (std::string_view(n.path) != path)
            continue;
        for (size_t i = 0; i < n.count; ++i) {
            if (n.reqs[i].req == req)
                return &n.reqs[i];
        }
    }
    return nullptr;
}

}  // namespace

std::string watchdog_status_text(unsigned mode, unsigned timeleft, unsigned timeout)
{
    char buf[160];
    std::snprintf(buf, sizeof buf, "%-12s: %-12s\n%-12s: %-12u\n%-12s: %-12u\n%-12s: %-12u\n",
                  "name", "hal_wdt", "mode", mode, "timeleft", timeleft, "timeout", timeout);
    return buf;
}

long node_ioctl(const char *path, unsigned long req, void *arg, int &err)
{
    JournalLine line("ioctl", path);
    line.request(static_cast<uint32_t>(req));
    char target[96], general[80];
    std::snprintf(target, sizeof target, "ioctl.%s.0x%lx", path, req);
    std::snprintf(general, sizeof general, "ioctl.%s", path);
    const Request *r = find_request(path, req);
    if (r == nullptr) {
        line.hex("arg", reinterpret_cast<uintptr_t>(arg));
        err = ENOTTY;
        line.finish(-1, err);
        return -1;
    }
    Call c{arg, reinterpret_cast<uintptr_t>(arg)};
    return serve(line, *r, c, target, general, err);
}

}  // namespace bsim

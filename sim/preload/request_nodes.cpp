// Request nodes: the board's kernel-driver nodes (/dev/hal_*, /dev/harddisk).
// A node exists when the state has dev/<name>; its descriptor is a memory
// file, and its requests are a table here, each with its record layout (for
// the journal) and a handler that reads or changes the board state:
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
//   rtc                                the RTC's seconds ahead of the host clock
#include "../common/records.h"
#include "../common/requests.h"
#include "../common/state.h"
#include "../common/sys.h"
#include "kinds.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <sys/mman.h>

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

int nvram_get(Call &c)
{
    std::string name = get_text(c.rec, 0, kNameLen);
    if (!valid_var(name))
        return fail(c, EINVAL);
    // A variable removed from the state's nvram/ is unset, default or not.
    auto value = state_has_file("nvram/" + name) ? state_read("nvram/" + name) : std::nullopt;
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
    return stored(c, state_write("nvram/" + name, get_text(c.rec, kValueOff, kValueLen) + "\n"));
}

constexpr Field kEnvGet[] = {{"name", 0, kNameLen, Kind::Text, kIn},
                             {"value", kValueOff, kValueLen, Kind::Text, kOut}};
constexpr Field kEnvSet[] = {{"name", 0, kNameLen, Kind::Text, kIn},
                             {"value", kValueOff, kValueLen, Kind::Text, kIn}};
constexpr Request kNvram[] = {make_request(req::kNvramGet, kEnvGet, nvram_get),
                              make_request(req::kNvramSet, kEnvSet, nvram_set)};

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
    make_request(req::kI2cRead, kI2cRead, i2c_read),
    make_request(req::kI2cWrite, kI2cWrite, i2c_write),
    make_request(req::kCpuRegRead, kRegRead, cpureg_read),
    make_request(req::kCpuRegWrite, kRegWrite, cpureg_write),
    make_request(req::kSataRegRead, kSata, sata_read),
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
    if (state_word("keys/reset", "") != "pressed")
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
    make_request(req::kGpioWrite, kGpioWrite, gpio_write),
    make_request(req::kGpioRead, kGpioRead, gpio_read),
    make_request(req::kGpioMode, kGpioMode, gpio_mode),
    make_request(req::kResetKey, kPlain, reset_key),
    make_request(req::kChipReset, kChipReset, chip_reset),
    make_request(req::kSubcardStatus, kCard, sub_status),
    make_request(req::kSubcardType, kCard, sub_type),
    make_request(req::kSubcardPcb, kCard, sub_pcb),
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
constexpr Request kRmcReqs[] = {make_request(req::kRmcMode, kRmc, rmc_mode),
                                make_request(req::kKeyPoll, kKey, key_poll),
                                make_request(req::kKeyPollAlt, kKey, key_poll)};

// ---- /dev/hal_watchdog ----

// A value of the status file's "key : value" lines.
int64_t watchdog_field(const std::string &text, const std::string &key, int64_t def)
{
    auto words = split_words(text);
    int64_t v = def;
    for (size_t i = 0; i + 2 < words.size(); ++i) {
        if (words[i] == key && words[i + 1] == ":" && parse_num(words[i + 2], v))
            return v;
    }
    return def;
}

// The watchdog driver's status file: lines of "%-12s: %-12s\n", so the
// value of "timeleft" starts at byte 68, where the tool reads it.
std::string watchdog_status_text(unsigned mode, unsigned timeleft, unsigned timeout)
{
    char buf[160];
    std::snprintf(buf, sizeof buf, "%-12s: %-12s\n%-12s: %-12u\n%-12s: %-12u\n%-12s: %-12u\n",
                  "name", "hal_wdt", "mode", mode, "timeleft", timeleft, "timeout", timeout);
    return buf;
}

// Arming (mode != 0) starts the countdown from the configured timeout;
// mode 0 stops the watchdog.
int watchdog_arm(Call &c)
{
    unsigned mode = get_u32(c.rec, 0);
    std::string now = state_read("proc/watchdog_status").value_or("");
    auto timeout = static_cast<unsigned>(watchdog_field(now, "timeout", 0));
    return stored(c, state_write("proc/watchdog_status",
                                 watchdog_status_text(mode, mode ? timeout : 0, timeout)));
}

constexpr Field kWatchdog[] = {{"mode", 0, 4, Kind::U32, kIn}, {"rest", 4, 8, Kind::Bytes, kIn}};
constexpr Request kWatchdogReqs[] = {make_request(req::kWatchdogArm, kWatchdog, watchdog_arm)};

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
constexpr Request kSwitchReqs[] = {make_request(req::kSwitchRegRead, kSwitch, switch_read)};

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
    make_request(req::kStorKind, kCard, sc_kind),
    make_request(req::kStorBoard, kCard, sc_board),
    make_request(req::kStorPcb, kCard, sc_pcb),
    make_request(req::kStorMcu, kCard, sc_mcu),
    make_request(req::kStorStatus, kCard, sc_status),
};

// ---- /dev/hal_runtime ----

int first_use_get(Call &c)
{
    int y = 0, m = 0, d = 0;
    std::string t = state_word("runtime/first_use", "");
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
    make_request(req::kFirstUseGet, kDateOut, first_use_get),
    make_request(req::kFirstUseSet, kDateIn, first_use_set),
    make_request(req::kTotalUsedGet, kTotalOut, total_get),
    make_request(req::kTotalUsedSet, kTotalIn, total_set),
    make_request(req::kRecordOn, kRecord, record_on),
    make_request(req::kRecordOff, kRecord, record_off),
};

// ---- /dev/harddisk ----

constexpr size_t kCabinets = 3, kSlots = 24;

int disk_present(Call &c)
{
    std::memset(c.rec, 0, kCabinets * kSlots);
    for (size_t s = 0; s < kSlots; ++s)
        put_u8(c.rec, s, state_slot("disk/present", s) ? 1 : 0);
    return 0;
}

int disk_capacity(Call &c)
{
    constexpr size_t kRecLen = 96;
    std::memset(c.rec, 0, kCabinets * kSlots * kRecLen);
    for (size_t s = 0; s < kSlots; ++s)
        put_u64(c.rec, s * kRecLen + 80, static_cast<uint64_t>(state_slot("disk/capacity", s)));
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
constexpr Request kDiskReqs[] = {make_request(req::kDiskPresent, kPresent, disk_present),
                                 make_request(req::kDiskCapacity, kCapacity, disk_capacity),
                                 make_request(req::kUsbInfo, kUsb, usb_info)};

// ---- /dev/rtc and its other names ----

// The chip keeps running between reads and across runs: it is the host's
// clock plus the offset that the last set left in the state.
int rtc_read(Call &c)
{
    time_t t = sys::host_now() + static_cast<time_t>(state_num("rtc", 0));
    struct tm tm {};
    gmtime_r(&t, &tm);
    const int f[] = {tm.tm_sec, tm.tm_min, tm.tm_hour, tm.tm_mday, tm.tm_mon, tm.tm_year};
    std::memset(c.rec, 0, 36);
    for (size_t i = 0; i < 6; ++i)
        put_u32(c.rec, i * 4, static_cast<uint32_t>(f[i]));
    return 0;
}

int rtc_set(Call &c)
{
    struct tm tm {};
    int *f[] = {&tm.tm_sec, &tm.tm_min, &tm.tm_hour, &tm.tm_mday, &tm.tm_mon, &tm.tm_year};
    for (size_t i = 0; i < 6; ++i)
        *f[i] = static_cast<int32_t>(get_u32(c.rec, i * 4));
    if (tm.tm_mon < 0 || tm.tm_mon > 11 || tm.tm_mday < 1 || tm.tm_mday > 31 || tm.tm_hour > 23 ||
        tm.tm_min > 59 || tm.tm_sec > 59)
        return fail(c, EINVAL);  // as the kernel's rtc_valid_tm
    return stored(
        c, state_write("rtc", num_line(static_cast<int64_t>(timegm(&tm) - sys::host_now()))));
}

constexpr Field kRtcOut[] = {{"sec", 0, 4, Kind::S32, kOut},  {"min", 4, 4, Kind::S32, kOut},
                             {"hour", 8, 4, Kind::S32, kOut}, {"mday", 12, 4, Kind::S32, kOut},
                             {"mon", 16, 4, Kind::S32, kOut}, {"year", 20, 4, Kind::S32, kOut}};
constexpr Field kRtcIn[] = {{"sec", 0, 4, Kind::S32, kIn},  {"min", 4, 4, Kind::S32, kIn},
                            {"hour", 8, 4, Kind::S32, kIn}, {"mday", 12, 4, Kind::S32, kIn},
                            {"mon", 16, 4, Kind::S32, kIn}, {"year", 20, 4, Kind::S32, kIn}};
constexpr Request kRtcReqs[] = {make_request(req::kRtcReadTime, kRtcOut, rtc_read),
                                make_request(req::kRtcSetTime, kRtcIn, rtc_set)};

// ---- the nodes: one row each, and a state file dev/<name> ----

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
    node("/dev/rtc", kRtcReqs),
    node("/dev/rtc0", kRtcReqs),
    node("/dev/misc/rtc", kRtcReqs),
};

}  // namespace

const NodeTable *request_node(const char *path)
{
    for (const NodeTable &n : kNodes) {
        if (std::strcmp(n.path, path) == 0)
            return &n;
    }
    return nullptr;
}

int request_node_open(const NodeTable &node, int flags)
{
    return sys::memfd(node.path + 5, (flags & O_CLOEXEC) ? MFD_CLOEXEC : 0);
}

long request_node_ioctl(const NodeTable &node, unsigned long req, void *arg, int &err)
{
    JournalLine line("ioctl", node.path);
    line.request(static_cast<uint32_t>(req));
    const Request *r = nullptr;
    for (size_t i = 0; i < node.count && r == nullptr; ++i)
        r = node.reqs[i].req == req ? &node.reqs[i] : nullptr;
    if (r == nullptr) {
        line.hex("arg", reinterpret_cast<uintptr_t>(arg));
        err = ENOTTY;
        line.finish(-1, err);
        return -1;
    }
    char target[96], general[80];
    std::snprintf(target, sizeof target, "ioctl.%s.0x%lx", node.path, req);
    std::snprintf(general, sizeof general, "ioctl.%s", node.path);
    Call c{arg, reinterpret_cast<uintptr_t>(arg)};
    return serve(line, *r, c, target, general, err);
}

}  // namespace bsim

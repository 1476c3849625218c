// Our libdriver.so for the PC: the board driver library's calls answered from
// the board state directory ($BOARDSIM_STATE), each call journaled as
//   drv <function> [<request>] <fields> -> <result>
// and each one open to fault injection (fail/<function>[.<request>]).
// State files used: board_id, link/<port>[.count], portmode/<group>,
// portmode/loop.<port>, temperature/{mainboard,netboard}, timezone,
// alarm/in.<n>, alarm/out.<n>, watchdog/indication, power/<index>,
// disk/{slots,local_slots,support_hdpart}, gps/baud. A state file that is
// missing and has no default reads as 0 (or empty).
#include "fault.h"
#include "journal.h"
#include "records.h"
#include "requests.h"
#include "state.h"

#include <atomic>
#include <cerrno>
#include <cstdio>

using namespace bsim;

namespace {

std::atomic<bool> g_open{false};

std::string num_text(int64_t v)
{
    return std::to_string(v) + "\n";
}

// A line's state word read as on/off: "up", "closed", "on", "1", ... are on.
bool is_on(const std::string &word)
{
    return word == "up" || word == "on" || word == "closed" || word == "1" || word == "yes";
}

// Calls made before DRV_Init (or after DRV_DeInit) still answer, marked.
JournalLine drv_line(const char *fn, const uint32_t *req = nullptr)
{
    JournalLine line("drv", fn);
    if (req)
        line.request(*req);
    if (!g_open.load())
        line.word("uninit", "1");
    return line;
}

// Runs a call without a record: fault check, then the body.
template <class Body>
int plain_call(JournalLine &line, const char *fn, Body body)
{
    int saved = errno;
    Fault f;
    if (fault_check(fn, f)) {
        line.finish(f.ret, f.err);
        errno = f.err;
        return static_cast<int>(f.ret);
    }
    int err = 0;
    int rc = body(err);
    line.finish(rc, rc < 0 ? err : 0);
    errno = rc < 0 ? err : saved;
    return rc;
}

int run_request(const char *fn, const Request &r, uint32_t req, void *arg)
{
    int saved = errno;
    JournalLine line = drv_line(fn, &req);
    char target[64];
    std::snprintf(target, sizeof target, "%s.0x%x", fn, req);
    Call c{arg, reinterpret_cast<uintptr_t>(arg)};
    int err = 0;
    long rc = serve(line, r, c, target, fn, err);
    errno = rc ? err : saved;
    return static_cast<int>(rc);
}

int unknown_request(const char *fn, uint32_t req, void *arg)
{
    JournalLine line = drv_line(fn, &req);
    line.hex("arg", reinterpret_cast<uintptr_t>(arg));
    line.finish(-1, EINVAL);
    errno = EINVAL;
    return -1;
}

// ---- DRV_SysCtl ----

int board_id(Call &c)
{
    put_u32(c.rec, 0, static_cast<uint32_t>(state_num("board_id", 0)));
    return 0;
}

constexpr Field kBoardId[] = {{"board_id", 0, 4, Kind::Hex32, kOut}};
constexpr Request kSysRequests[] = {make_request(req::kBoardId, kBoardId, board_id)};

// ---- DRV_PerpCtl ----

// The port number is byte 1 of the record; byte 0 is a selector the
// callers fill in differently and that does not pick the port. "down
// after=N" answers down N times, then up (queries counted in
// link/<port>.count; delete it to start over).
int link_state(Call &c)
{
    std::string rel = "link/" + std::to_string(get_u8(c.rec, 1));
    bool up = is_on(state_word(rel, "down"));
    int64_t after = state_keynum(rel, "after", -1);
    if (after >= 0) {
        int64_t asked = state_num(rel + ".count", 0);
        if (!state_write(rel + ".count", num_text(asked + 1)))
            return fail(c, errno);
        up = asked >= after;
    }
    put_u8(c.rec, 2, up ? 1 : 0);
    return 0;
}

int set_mode_net(Call &c)
{
    unsigned mode = get_u8(c.rec, 2);
    if (mode > 10)
        return fail(c, EINVAL);
    return stored(c, state_write("portmode/" + std::to_string(get_u8(c.rec, 1)), num_text(mode)));
}

int set_mode_loop(Call &c)
{
    return stored(c, state_write("portmode/loop." + std::to_string(get_u8(c.rec, 1)),
                                 num_text(get_u8(c.rec, 2))));
}

int get_mode(Call &c)
{
    int64_t mode = state_num("portmode/" + std::to_string(get_u8(c.rec, 1)), 0);
    put_u8(c.rec, 2, static_cast<uint8_t>(mode));
    return 0;
}

int temp_main(Call &c)
{
    put_u64(c.rec, 0, static_cast<uint64_t>(state_num("temperature/mainboard", 0)));
    return 0;
}

int temp_net(Call &c)
{
    put_u64(c.rec, 0, static_cast<uint64_t>(state_num("temperature/netboard", 0)));
    return 0;
}

int set_zone(Call &c)
{
    std::string name = get_text(c.rec, 8, 31);
    if (name.empty())
        return fail(c, EINVAL);
    return stored(c, state_write("timezone", name + "\n"));
}

int get_zone(Call &c)
{
    put_text(c.rec, 8, 32, state_word("timezone", ""));
    return 0;
}

int alarm_in(Call &c)
{
    std::string rel = "alarm/in." + std::to_string(get_u32(c.rec, 0));
    if (!state_exists(rel))
        return fail(c, ENODEV);
    put_u8(c.rec, 4, is_on(state_word(rel, "")) ? 1 : 0);
    return 0;
}

int alarm_out(Call &c)
{
    std::string rel = "alarm/out." + std::to_string(get_u32(c.rec, 0));
    if (!state_exists(rel))
        return fail(c, ENODEV);
    return stored(c, state_write(rel, get_u8(c.rec, 4) ? "on\n" : "off\n"));
}

int wdt_indicate(Call &c)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02x,%02x,%02x\n", get_u8(c.rec, 0), get_u8(c.rec, 1),
                  get_u8(c.rec, 2));
    return stored(c, state_write("watchdog/indication", buf));
}

int power(Call &c)
{
    std::string rel = "power/" + std::to_string(get_u8(c.rec, 0));
    if (!state_exists(rel))
        return fail(c, ENODEV);
    put_u8(c.rec, 1, static_cast<uint8_t>(state_keynum(rel, "present", 0)));
    put_u8(c.rec, 2, static_cast<uint8_t>(state_keynum(rel, "work", 0)));
    put_u8(c.rec, 3, static_cast<uint8_t>(state_keynum(rel, "fan", 0)));
    return 0;
}

constexpr Field kLink[] = {
    {"sel", 0, 1, Kind::U8, kIn}, {"port", 1, 1, Kind::U8, kIn}, {"link", 2, 1, Kind::U8, kOut}};
constexpr Field kModeNet[] = {{"layout", 0, 1, Kind::U8, kIn},
                              {"group", 1, 1, Kind::U8, kIn},
                              {"mode", 2, 1, Kind::U8, kIn},
                              {"flag", 3, 1, Kind::U8, kIn}};
constexpr Field kModeLoop[] = {
    {"layout", 0, 1, Kind::U8, kIn}, {"port", 1, 1, Kind::U8, kIn}, {"code", 2, 1, Kind::U8, kIn}};
constexpr Field kModeGet[] = {{"sel", 0, 1, Kind::U8, kIn},
                              {"group", 1, 1, Kind::U8, kIn},
                              {"mode", 2, 1, Kind::U8, kOut},
                              {"flag", 3, 1, Kind::U8, kIn}};
constexpr Field kTemp[] = {{"temp", 0, 8, Kind::S64, kOut}};
constexpr Field kZoneSet[] = {{"reserved", 0, 8, Kind::Hex64, kIn},
                              {"zone", 8, 32, Kind::Text, kIn}};
constexpr Field kZoneGet[] = {{"zone", 8, 32, Kind::Text, kOut}};
constexpr Field kAlarmIn[] = {{"input", 0, 4, Kind::U32, kIn}, {"level", 4, 1, Kind::U8, kOut}};
constexpr Field kAlarmOut[] = {{"output", 0, 4, Kind::U32, kIn},
                               {"state", 4, 1, Kind::U8, kIn},
                               {"byte6", 6, 1, Kind::U8, kIn}};
constexpr Field kWdt[] = {{"bytes", 0, 3, Kind::Bytes, kIn}};
constexpr Field kPower[] = {{"index", 0, 1, Kind::U8, kIn},
                            {"present", 1, 1, Kind::U8, kOut},
                            {"work", 2, 1, Kind::U8, kOut},
                            {"fan", 3, 1, Kind::U8, kOut}};

constexpr Request kPerpRequests[] = {
    make_request(req::kLinkState, kLink, link_state),
    make_request(req::kGetPortMode, kModeGet, get_mode),
    make_request(req::kMainTemp, kTemp, temp_main),
    make_request(req::kNetTemp, kTemp, temp_net),
    make_request(req::kSetTimezone, kZoneSet, set_zone),
    make_request(req::kGetTimezone, kZoneGet, get_zone),
    make_request(req::kAlarmIn, kAlarmIn, alarm_in),
    make_request(req::kAlarmOut, kAlarmOut, alarm_out),
    make_request(req::kWatchdogIndicate, kWdt, wdt_indicate),
    make_request(req::kPowerStatus, kPower, power),
};
constexpr Request kModeNetRequest = make_request(req::kSetPortMode, kModeNet, set_mode_net);
constexpr Request kModeLoopRequest = make_request(req::kSetPortMode, kModeLoop, set_mode_loop);

// Request 0x1600 comes in two layouts: byte 0 is 1 in the 4-byte net-mode
// record and 0 in the 3-byte loopback record. Only byte 0 is looked at before
// choosing, so the shorter record is never read past its end.
const Request *find_perp(uint32_t req, const void *arg)
{
    if (req == req::kSetPortMode && arg)
        return get_u8(arg, 0) == 1 ? &kModeNetRequest : &kModeLoopRequest;
    if (req == req::kSetPortMode)
        return &kModeNetRequest;
    for (const Request &r : kPerpRequests) {
        if (r.req == req)
            return &r;
    }
    return nullptr;
}

// ---- DRV_DiskCtl ----

int disk_prepare(Call &)
{
    return 0;
}

constexpr Field kDiskPrep[] = {{"slot", 0, 4, Kind::U32, kIn}, {"arg", 4, 4, Kind::U32, kIn}};
constexpr Request kDiskPrepRequest = make_request(req::kDiskFormatPrep, kDiskPrep, disk_prepare);

// Serial rates a UART can run at; anything else is refused as a real
// port driver would.
bool valid_baud(uint32_t baud)
{
    constexpr uint32_t kRates[] = {1200,  2400,   4800,   9600,   19200, 38400,
                                   57600, 115200, 230400, 460800, 921600};
    for (uint32_t r : kRates) {
        if (r == baud)
            return true;
    }
    return false;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int DRV_Init(int iParam)
{
    JournalLine line("drv", "DRV_Init");
    line.num("arg", iParam);
    int rc = plain_call(line, "DRV_Init", [](int &) { return 0; });
    if (rc == 0)
        g_open.store(true);
    return rc;
}

__attribute__((visibility("default"))) int DRV_DeInit(void)
{
    JournalLine line = drv_line("DRV_DeInit");
    int rc = plain_call(line, "DRV_DeInit", [](int &) { return 0; });
    if (rc == 0)
        g_open.store(false);
    return rc;
}

__attribute__((visibility("default"))) int DRV_SysCtl(uint32_t u32Req, void *pArg)
{
    for (const Request &r : kSysRequests) {
        if (r.req == u32Req)
            return run_request("DRV_SysCtl", r, u32Req, pArg);
    }
    return unknown_request("DRV_SysCtl", u32Req, pArg);
}

__attribute__((visibility("default"))) int DRV_PerpCtl(uint32_t u32Req, void *pArg)
{
    if (const Request *r = find_perp(u32Req, pArg))
        return run_request("DRV_PerpCtl", *r, u32Req, pArg);
    return unknown_request("DRV_PerpCtl", u32Req, pArg);
}

__attribute__((visibility("default"))) int DRV_DiskCtl(uint32_t u32Req, void *pArg)
{
    if (u32Req == req::kDiskFormatPrep)
        return run_request("DRV_DiskCtl", kDiskPrepRequest, u32Req, pArg);
    return unknown_request("DRV_DiskCtl", u32Req, pArg);
}

__attribute__((visibility("default"))) int DRV_BOARD_GetHdiskSlotNum(void)
{
    JournalLine line = drv_line("DRV_BOARD_GetHdiskSlotNum");
    return plain_call(line, "DRV_BOARD_GetHdiskSlotNum",
                      [](int &) { return static_cast<int>(state_num("disk/slots", 0)); });
}

__attribute__((visibility("default"))) int DRV_BOARD_GetHdiskLocalSlotNum(void)
{
    JournalLine line = drv_line("DRV_BOARD_GetHdiskLocalSlotNum");
    return plain_call(line, "DRV_BOARD_GetHdiskLocalSlotNum",
                      [](int &) { return static_cast<int>(state_num("disk/local_slots", 0)); });
}

__attribute__((visibility("default"))) int DRV_DevSupportHdPart(int iSizeGb)
{
    JournalLine line = drv_line("DRV_DevSupportHdPart");
    line.num("arg", iSizeGb);
    return plain_call(line, "DRV_DevSupportHdPart",
                      [](int &) { return static_cast<int>(state_num("disk/support_hdpart", 0)); });
}

__attribute__((visibility("default"))) int DRV_GPS_SetBaudRate(uint32_t u32Baud)
{
    JournalLine line = drv_line("DRV_GPS_SetBaudRate");
    line.num("baud", u32Baud);
    return plain_call(line, "DRV_GPS_SetBaudRate", [u32Baud](int &err) {
        if (!valid_baud(u32Baud)) {
            err = EINVAL;
            return -1;
        }
        if (!state_write("gps/baud", std::to_string(u32Baud) + "\n")) {
            err = errno;
            return -1;
        }
        return 0;
    });
}

}  // extern "C"

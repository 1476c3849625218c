// Ethernet ports: the requests the board's Ethernet driver answers on a
// socket, for an interface eth<n> that the state has as eth/eth<n>. The box's
// eth0/eth1 are real veth links for everything else (addresses, hardware
// addresses, raw frames); the driver's private internal-loopback request
// has no veth counterpart, so it is answered here: the request block that
// ifr_data points at is journaled and the result is 0 unless a fault is
// injected (fail/ioctl.eth0.0x89f0). An interface the board lacks: ENODEV.
#include "../common/records.h"
#include "../common/requests.h"
#include "../common/state.h"
#include "kinds.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace bsim {

namespace {

constexpr size_t kNameLen = 16;  // ifr_name
constexpr size_t kDataOff = 16;  // ifr_data

int loopback(Call &)
{
    return 0;
}

constexpr Field kLoopFields[] = {
    {"type", 0, 4, Kind::U32, kIn},    {"port", 4, 4, Kind::U32, kIn},
    {"speed", 8, 4, Kind::U32, kIn},   {"mode", 12, 4, Kind::U32, kIn},
    {"len", 16, 4, Kind::U32, kIn},    {"count", 20, 4, Kind::U32, kIn},
    {"content", 24, 4, Kind::U32, kIn}};
constexpr Request kLoopback = make_request(req::kEthLoopback, kLoopFields, loopback);

long refuse(JournalLine &line, int code, int &err)
{
    err = code;
    line.finish(-1, err);
    return -1;
}

}  // namespace

bool net_request(unsigned long req)
{
    return req == req::kEthLoopback;
}

long net_request_ioctl(unsigned long req, void *arg, int &err)
{
    if (arg == nullptr) {
        err = EFAULT;
        return -1;
    }
    std::string name = get_text(arg, 0, kNameLen);
    JournalLine line("ioctl", name);
    line.request(static_cast<uint32_t>(req));
    if (name.empty() || name.find('/') != std::string::npos || name[0] == '.' ||
        !state_has_file("eth/" + name))
        return refuse(line, ENODEV, err);
    void *block = nullptr;
    std::memcpy(&block, static_cast<char *>(arg) + kDataOff, sizeof block);
    if (block == nullptr)
        return refuse(line, EFAULT, err);
    char target[64], general[48];
    std::snprintf(target, sizeof target, "ioctl.%s.0x%lx", name.c_str(), req);
    std::snprintf(general, sizeof general, "ioctl.%s", name.c_str());
    Call c{block, reinterpret_cast<uintptr_t>(block)};
    return serve(line, kLoopback, c, target, general, err);
}

}  // namespace bsim

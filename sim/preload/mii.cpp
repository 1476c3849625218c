// MII registers: SIOCGMIIREG and SIOCSMIIREG name an Ethernet interface in
// an interface request made on any socket. While the box has a state
// directory they never reach the kernel, so no host PHY is read or written:
//   mdio/<if>/                  the interface has a PHY bus (else ENODEV)
//   mdio/<if>/0x<phy>/0x<reg>   a register; it keeps what is written unless
//                               the file says "stuck" after the value
// A PHY without its directory does not answer: reads give 0xffff, as an
// MDIO bus with nothing on it, and writes go nowhere.
#include "../common/fault.h"
#include "../common/journal.h"
#include "../common/records.h"
#include "../common/state.h"
#include "../common/sys.h"
#include "kinds.h"

#include <cerrno>
#include <cstdio>
#include <linux/sockios.h>

namespace bsim {

namespace {

// The interface request: name, then PHY address, register, value in, value out.
constexpr size_t kNameLen = 16;
constexpr size_t kPhyOff = 16, kRegOff = 18, kValInOff = 20, kValOutOff = 22;

uint16_t get_u16(const void *rec, size_t off)
{
    uint16_t v;
    std::memcpy(&v, static_cast<const char *>(rec) + off, sizeof v);
    return v;
}

// Register and PHY file names as the other register files spell them.
std::string hex2(unsigned v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%02x", v);
    return buf;
}

std::string hex4(unsigned v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%04x", v);
    return buf;
}

bool is_socket(int fd)
{
    struct stat st {};
    return sys::fstat(fd, &st) == 0 && S_ISSOCK(st.st_mode);
}

// Serves the request on the register file; 0 or -1 with err.
int serve_register(const std::string &ifdir, unsigned long req, void *rec, int &err)
{
    if (!state_exists(ifdir)) {
        err = ENODEV;
        return -1;
    }
    std::string phy = ifdir + "/" + hex2(get_u16(rec, kPhyOff));
    std::string reg = phy + "/" + hex2(get_u16(rec, kRegOff));
    if (req == SIOCGMIIREG) {
        auto v = state_exists(phy) ? state_num(reg, 0) : 0xffff;
        uint16_t out = static_cast<uint16_t>(v);
        std::memcpy(static_cast<char *>(rec) + kValOutOff, &out, sizeof out);
        return 0;
    }
    auto words = split_words(state_read(reg).value_or(""));
    bool stuck = words.size() > 1 && words[1] == "stuck";
    if (!state_exists(phy) || stuck)
        return 0;
    if (state_write(reg, hex4(get_u16(rec, kValInOff)) + "\n"))
        return 0;
    err = errno ? errno : EIO;
    return -1;
}

}  // namespace

bool mii_request(int fd, unsigned long req)
{
    return (req == SIOCGMIIREG || req == SIOCSMIIREG) && !state_dir().empty() && is_socket(fd);
}

int mii_ioctl(unsigned long req, void *rec)
{
    int saved = errno;
    std::string name = get_text(rec, 0, kNameLen);
    JournalLine line("ioctl", name);
    line.request(static_cast<uint32_t>(req));
    line.hex("phy", get_u16(rec, kPhyOff));
    line.hex("reg", get_u16(rec, kRegOff));
    if (req == SIOCSMIIREG)
        line.hex("value", get_u16(rec, kValInOff));
    char target[64];
    std::snprintf(target, sizeof target, "ioctl.%s.0x%lx", name.c_str(), req);
    Fault f;
    int err = 0;
    long rc = 0;
    if (name.empty() || name.find('/') != std::string::npos) {
        rc = -1;
        err = ENODEV;
    } else if (fault_check2(target, "ioctl." + name, f)) {
        rc = f.ret;
        err = f.err;
    } else {
        rc = serve_register("mdio/" + name, req, rec, err);
        if (rc == 0 && req == SIOCGMIIREG)
            line.hex("value", get_u16(rec, kValOutOff));
    }
    line.finish(rc, rc != 0 ? err : 0);
    errno = rc != 0 ? err : saved;
    return static_cast<int>(rc);
}

}  // namespace bsim

// Common services of the test modules.
// Device access: /dev/hal_nvram (environment variables), /dev/hal_misc (I2C,
// CPU registers), /dev/hal_gpio, /dev/hal_rmc, and MII registers through an
// interface request on a local stream socket. Each call opens its node with
// an EQU_Node, issues one private request with a small record and lets the
// handle close the node, except where a descriptor is deliberately left open
// (CPU registers on success, I2C write on failure: the driver has always been
// used so). The numeric parameter check of the validators lives here too.
// Shell services: operator confirmation on standard input, TFTP transfer with
// BusyBox tftp, shell runs judged by their wait status, a number read from a
// command's output, file existence; the board-position keyword; and the
// formatting of every present local hard disk.
#include "equ_common.h"

#include "drv_api.h"
#include "equ_cmd.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cctype>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

char acEquServerip[16];

namespace {

// Open-failure messages used by one caller each.
constexpr EQU_OPEN_MSG_S kMsgOpenBare{"\r\nopen ", "\n"};
constexpr EQU_OPEN_MSG_S kMsgOpenI2c{"\r\n\r\n Failed to open ", " file \r\n"};

// The drivers' private request numbers; they do not follow the _IOC encoding.
constexpr unsigned long kNvramGet = 0x40614;
constexpr unsigned long kNvramSet = 0x40615;
constexpr unsigned long kMiiRead = 0x8948;   // SIOCGMIIREG
constexpr unsigned long kMiiWrite = 0x8949;  // SIOCSMIIREG
constexpr unsigned long kI2cRead = 0x40608;
constexpr unsigned long kI2cWrite = 0x40609;
constexpr unsigned long kCpuRegRead = 0x70106;
constexpr unsigned long kCpuRegWrite = 0x70107;
constexpr unsigned long kGpioWrite = 0x40610;
constexpr unsigned long kGpioRead = 0x40611;
constexpr unsigned long kGpioMode = 0x4061F;
constexpr unsigned long kRmcMode = 0x40113;

// An interface request as the MII ioctls read it: the name, then the MII data
// in the request's union. Sized like struct ifreq so the whole request is ours.
struct MiiReq {
    char szName[16];
    uint16_t u16PhyId;
    uint16_t u16RegNum;
    uint16_t u16ValIn;
    uint16_t u16ValOut;
    uint8_t aucPad[16];
};
static_assert(sizeof(MiiReq) == 40);
static_assert(offsetof(MiiReq, u16PhyId) == 16 && offsetof(MiiReq, u16ValOut) == 22);

struct I2cReq {
    uint8_t ucBus;
    uint8_t ucDevAddr;
    uint8_t ucReg;
    uint8_t ucZero;
    uint32_t u32Data;
    uint32_t u32Len;
};
static_assert(sizeof(I2cReq) == 12);
static_assert(offsetof(I2cReq, u32Data) == 4 && offsetof(I2cReq, u32Len) == 8);

struct CpuRegReq {
    uint32_t u32Addr;
    uint32_t u32Val;
};
static_assert(sizeof(CpuRegReq) == 8 && offsetof(CpuRegReq, u32Val) == 4);

struct GpioReq {
    uint32_t u32Group;
    uint32_t u32Bit;
    uint32_t u32Val;
};
static_assert(sizeof(GpioReq) == 12 && offsetof(GpioReq, u32Val) == 8);

struct RmcReq {
    uint32_t u32Mode;
    uint32_t u32Zero;
};
static_assert(sizeof(RmcReq) == 8);

static_assert(offsetof(EQU_ENV_S, szValue) == 64);

uint32_t nvram_call(unsigned long ulReq, EQU_ENV_S *pstEnv)
{
    EQU_Node node(EQU_DEV_NVRAM, kMsgOpenBare);
    if (!node) {
        return EQU_FAIL;
    }
    // The driver works on our own copy, so a failed read cannot disturb the
    // caller's record and unterminated caller text stays within bounds.
    EQU_ENV_S stReq;
    memset(&stReq, 0, sizeof(stReq));
    memcpy(stReq.szName, pstEnv->szName, sizeof(stReq.szName) - 1);
    if (ulReq == kNvramSet) {
        memcpy(stReq.szValue, pstEnv->szValue, sizeof(stReq.szValue));
    }
    if (node.request(ulReq, &stReq) != 0) {
        if (ulReq == kNvramSet) {
            // A value may fill the whole field, with no terminator.
            printf("\r\nFailed to set nvram value(%.*s) of %s, errno(%s)\n",
                   static_cast<int>(sizeof(stReq.szValue)), stReq.szValue, stReq.szName,
                   node.error());
        } else {
            printf("\r\nFailed to get nvram valuee of %s, errno(%s)\n", stReq.szName, node.error());
        }
        return EQU_FAIL;
    }
    if (ulReq == kNvramGet) {
        memcpy(pstEnv->szValue, stReq.szValue, sizeof(stReq.szValue));
        pstEnv->szValue[sizeof(pstEnv->szValue) - 1] = '\0';
    }
    return EQU_OK;
}

MiiReq mii_req(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg)
{
    MiiReq stReq;
    memset(&stReq, 0, sizeof(stReq));
    snprintf(stReq.szName, sizeof(stReq.szName), "eth%u", u32EthIdx);
    stReq.u16PhyId = static_cast<uint16_t>(u32PhyAddr);
    stReq.u16RegNum = static_cast<uint16_t>(u32Reg);
    return stReq;
}

// Only the interface name routes an MII request, so any local socket will do.
int mii_socket(void)
{
    int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    if (sock < 0) {
        printf("\r\nopen socket failed! [%s]", strerror(errno));
    }
    return sock;
}

// The two GPIO requests on an open node, with their messages.
uint32_t gpio_write_on(EQU_Node &node, uint32_t u32Group, uint32_t u32Bit, uint32_t u32Val)
{
    GpioReq stReq{u32Group, u32Bit, u32Val};
    if (node.request(kGpioWrite, &stReq) != 0) {
        printf("\r\nset gpio value failed, GpioIdx %d, BitIdx %d,  Value %d", u32Group, u32Bit,
               u32Val);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t gpio_mode_on(EQU_Node &node, uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode)
{
    GpioReq stReq{u32Group, u32Bit, u32Mode};
    if (node.request(kGpioMode, &stReq) != 0) {
        printf("\r\nset gpio mode failed, GpioIdx %d, BitIdx %d,  SetMode %d", u32Group, u32Bit,
               u32Mode);
        return EQU_FAIL;
    }
    return EQU_OK;
}

}  // namespace

EQU_Node::EQU_Node(const char *pcPath, const EQU_OPEN_MSG_S &stOpenMsg, int iFlags,
                   const char *pcShown)
    : m_fd(open(pcPath, iFlags))
{
    if (m_fd < 0) {
        printf("%s%s%s", stOpenMsg.pcBefore, pcShown != nullptr ? pcShown : pcPath,
               stOpenMsg.pcAfter);
    }
}

EQU_Node::~EQU_Node()
{
    if (m_fd >= 0) {
        close(m_fd);
    }
}

int EQU_Node::request(unsigned long ulReq, void *pvRecord)
{
    int iRet = ioctl(m_fd, ulReq, pvRecord);
    m_iErrno = errno;
    return iRet;
}

int EQU_Node::request(unsigned long ulReq, unsigned long ulPlainArg)
{
    int iRet = ioctl(m_fd, ulReq, ulPlainArg);
    m_iErrno = errno;
    return iRet;
}

const char *EQU_Node::error() const
{
    return strerror(m_iErrno);
}

bool EQU_InRange(const char *pcText, int32_t lo, int32_t hi, int64_t *plVal)
{
    // Read as the C library reads it: a sign with no digits ("-") is 0, "-0"
    // is 0, and any other negative number fails a range that starts at 0.
    const char *p = pcText;
    bool bNeg = *p == '-';
    p += bNeg ? 1 : 0;
    if (*pcText == '\0') {
        return false;
    }
    // Capped as it accumulates, so that a long digit string cannot wrap into range.
    constexpr int64_t kCap = int64_t{1} << 32;
    int64_t lMag = 0;
    for (; *p != '\0'; p++) {
        if (*p < '0' || *p > '9') {
            return false;
        }
        lMag = std::min(lMag * 10 + (*p - '0'), kCap);
    }
    int64_t lVal = bNeg ? -lMag : lMag;
    if (lVal < lo || lVal > hi) {
        return false;
    }
    if (plVal != nullptr) {
        *plVal = lVal;
    }
    return true;
}

uint32_t EQU_GetEnvFromFlash(EQU_ENV_S *pstEnv)
{
    return nvram_call(kNvramGet, pstEnv);
}

uint32_t EQU_SetEnvToFlash(EQU_ENV_S *pstEnv)
{
    return nvram_call(kNvramSet, pstEnv);
}

uint32_t EQU_Mdio_Read(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t *pu32Val)
{
    EQU_Node sock(mii_socket());
    if (!sock) {
        return EQU_FAIL;
    }
    MiiReq stReq = mii_req(u32EthIdx, u32PhyAddr, u32Reg);
    if (sock.request(kMiiRead, &stReq) < 0) {
        printf("\r\nfailed read mdio [0x%x:0x%x]%s", u32PhyAddr, u32Reg, sock.error());
        return EQU_FAIL;
    }
    *pu32Val = stReq.u16ValOut;
    return EQU_OK;
}

uint32_t EQU_Mdio_Write(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t u32Val)
{
    EQU_Node sock(mii_socket());
    if (!sock) {
        return EQU_FAIL;
    }
    MiiReq stReq = mii_req(u32EthIdx, u32PhyAddr, u32Reg);
    stReq.u16ValIn = static_cast<uint16_t>(u32Val);
    if (sock.request(kMiiWrite, &stReq) < 0) {
        printf("\r\nfailed write mdio [0x%x:0x%x:0x%x]%s", u32PhyAddr, u32Reg, u32Val,
               sock.error());
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_I2C_Read(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Len,
                      uint32_t *pu32Val)
{
    EQU_Node node(EQU_DEV_MISC, kMsgOpenI2c);
    if (!node) {
        return EQU_FAIL;
    }
    I2cReq stReq{ucBus, ucDevAddr, ucReg, 0, 0, u32Len};
    if (node.request(kI2cRead, &stReq) < 0) {
        printf("\r\nFailed to read i2c device:%x:%x %s\n", ucDevAddr, ucReg, node.error());
        return EQU_FAIL;
    }
    *pu32Val = stReq.u32Data;
    return EQU_OK;
}

uint32_t EQU_I2C_Write(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Val)
{
    EQU_Node node(EQU_DEV_MISC, kMsgOpenI2c);
    if (!node) {
        return EQU_FAIL;
    }
    I2cReq stReq{ucBus, ucDevAddr, ucReg, 0, u32Val, 1};
    if (node.request(kI2cWrite, &stReq) < 0) {
        printf("\r\n\r\nFailed to write i2c device:%x:%x %s", ucDevAddr, ucReg, node.error());
        // The driver has always been used this way; the chip check fails only a few times.
        node.leak_open();
        return EQU_FAIL;
    }
    return EQU_OK;
}

namespace {

// -1 when the node does not open (the register callers' own code), 200 when
// the request fails; the caller prints that failure.
int32_t cpu_reg_call(unsigned long ulReq, CpuRegReq *pstReq)
{
    EQU_Node node(EQU_DEV_MISC, EQU_MSG_OPEN_FAILED_NL);
    if (!node) {
        return -1;
    }
    if (node.request(ulReq, pstReq) != 0) {
        return EQU_FAIL;
    }
    // The register driver has always been left open after a good request.
    node.leak_open();
    return EQU_OK;
}

}  // namespace

int32_t EQU_CPUReg_Read(uint32_t u32RegAddr, uint32_t *pu32Val)
{
    CpuRegReq stReq{u32RegAddr, 0};
    int32_t iRet = cpu_reg_call(kCpuRegRead, &stReq);
    if (iRet == EQU_FAIL) {
        printf("\r\nread cpu reg failed, uiRegAddr 0x%x", u32RegAddr);
    } else if (iRet == EQU_OK) {
        *pu32Val = stReq.u32Val;
    }
    return iRet;
}

int32_t EQU_CPUReg_Write(uint32_t u32RegAddr, uint32_t u32Val)
{
    CpuRegReq stReq{u32RegAddr, u32Val};
    int32_t iRet = cpu_reg_call(kCpuRegWrite, &stReq);
    if (iRet == EQU_FAIL) {
        printf("\r\nread cpu reg failed, uiRegAddr 0x%x, uiRegVal 0x%x", u32RegAddr, u32Val);
    }
    return iRet;
}

uint32_t EQU_GPIO_ReadByte(uint32_t u32Group, uint32_t u32Bit, uint32_t *pu32Val)
{
    EQU_Node node(EQU_DEV_GPIO, EQU_MSG_OPEN_FAILED_NL);
    if (!node) {
        return EQU_FAIL;
    }
    GpioReq stReq{u32Group, u32Bit, 0};
    if (node.request(kGpioRead, &stReq) != 0) {
        printf("\r\nget gpio value failed, GpioIdx %d, BitIdx %d", u32Group, u32Bit);
        return EQU_FAIL;
    }
    *pu32Val = stReq.u32Val;
    return EQU_OK;
}

uint32_t EQU_GPIO_WriteByte(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Val)
{
    EQU_Node node(EQU_DEV_GPIO, EQU_MSG_OPEN_FAILED_NL);
    return node ? gpio_write_on(node, u32Group, u32Bit, u32Val) : EQU_FAIL;
}

uint32_t EQU_GPIO_SetMode(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode)
{
    EQU_Node node(EQU_DEV_GPIO, EQU_MSG_OPEN_FAILED_NL);
    return node ? gpio_mode_on(node, u32Group, u32Bit, u32Mode) : EQU_FAIL;
}

uint32_t EQU_GPIO_SetModeAndWrite(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode,
                                  uint32_t u32Val)
{
    EQU_Node node(EQU_DEV_GPIO, EQU_MSG_OPEN_FAILED_NL);
    if (!node || gpio_mode_on(node, u32Group, u32Bit, u32Mode) != EQU_OK) {
        return EQU_FAIL;
    }
    return gpio_write_on(node, u32Group, u32Bit, u32Val);
}

uint32_t EQU_SetRmcTestMode(uint32_t u32Mode)
{
    EQU_Node node(EQU_DEV_RMC, EQU_MSG_OPEN_FILE);
    if (!node) {
        return EQU_FAIL;
    }
    RmcReq stReq{u32Mode, 0};
    if (node.request(kRmcMode, &stReq) != 0) {
        printf("\r\nFailed to set rmc to equtest mode");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// The mask is a byte: widths 0 and 9 to 32 shift it out and print nothing
// (the shift count wraps at 32, as the board's compilers have always done).
void EQU_Print_Bit(uint8_t ucVal, uint8_t ucWidth)
{
    char acBits[9] = {0};
    size_t n = 0;
    uint8_t ucMask = static_cast<uint8_t>(1u << ((ucWidth - 1u) & 31u));
    for (; ucMask != 0 && n < 8; ucMask >>= 1) {
        acBits[n++] = (ucVal & ucMask) ? '1' : '0';
    }
    printf("%s", acBits);
}

namespace {

void erase_last(void)
{
    printf("\b \b");
}

}  // namespace

// Reads through stdio like the command loop, so no typed-ahead input is lost
// between the two. A console that goes away never confirms a destructive step.
int EQU_CheckYesInput(void)
{
    char acBuf[100];
    size_t n = 0;
    memset(acBuf, 0, sizeof(acBuf));
    printf("\r\nAre you sure?(Y/N)");
    fflush(stdout);
    for (;;) {
        int c = getchar();
        if (c == EOF && ferror(stdin) && errno == EINTR) {
            clearerr(stdin);
            continue;
        }
        if (c == EOF) {
            return 0;
        }
        if (c == '\r') {
            break;
        }
        if (c == '\b' || c == 127) {
            if (n > 0) {
                acBuf[--n] = '\0';
                erase_last();
            }
        } else if (isprint(c)) {
            printf("%c", c);
            if (n < sizeof(acBuf) - 1) {
                acBuf[n++] = static_cast<char>(c);
            } else {
                erase_last();
            }
        }
        fflush(stdout);
    }
    fflush(stdout);
    return (strcmp(acBuf, "y") == 0 || strcmp(acBuf, "Y") == 0) ? 1 : 0;
}

uint32_t EQU_TftpTransferFile(const char *pcLocal, const char *pcRemote, uint8_t ucPut)
{
    if (strnlen(acEquServerip, sizeof(acEquServerip)) < 7) {
        printf("\r\nerror: you have not set the serverip");
        return EQU_FAIL;
    }
    char acCmd[100];
    int iLen = snprintf(acCmd, sizeof(acCmd),
                        ucPut ? "tftp -p %.16s -l %s -r %s" : "tftp -g %.16s -l %s -r %s",
                        acEquServerip, pcLocal, pcRemote);
    // A cut command would move some other file: refuse it instead.
    if (iLen < 0 || static_cast<size_t>(iLen) >= sizeof(acCmd) || system(acCmd) != 0) {
        printf("\r\nerror: %s failed", acCmd);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_IsFileExist(const char *pcPath)
{
    if (pcPath != nullptr && access(pcPath, F_OK) == 0) {
        return EQU_OK;
    }
    return EQU_FAIL;
}

// The signal test comes before the exit status on purpose: a command ended by
// a signal passes, and callers depend on that.
uint32_t EQU_System(const char *pcCmd)
{
    int iStatus = system(pcCmd);
    if (iStatus == -1) {
        return EQU_FAIL;
    }
    if (iStatus <= 0) {
        return EQU_OK;
    }
    if ((iStatus & 0x7f) != 0) {
        return EQU_OK;
    }
    if (((iStatus >> 8) & 0xff) != 0) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_CmdRes_Num(const char *pcCmd)
{
    FILE *fp = popen(pcCmd, "r");
    if (fp == nullptr) {
        printf("\r\npopen error[%s]\n", pcCmd);
        return 0xFFFFFFFFu;
    }
    char acLine[128];
    memset(acLine, 0, sizeof(acLine));
    if (fgets(acLine, sizeof(acLine), fp) == nullptr) {
        printf("\r\nfgets error[%s]\n", pcCmd);
        pclose(fp);
        return 0xFFFFFFFFu;
    }
    pclose(fp);
    // What atoi gives, without its undefined overflow.
    long lVal = strtol(acLine, nullptr, 10);
    return static_cast<uint32_t>(static_cast<int32_t>(lVal));
}

uint32_t EQU_GetBoardPos(const char *pcBoard)
{
    if (pcBoard == nullptr) {
        return 255;
    }
    if (strcmp(pcBoard, "mainboard") == 0) {
        return 0;
    }
    if (strcmp(pcBoard, "netboard") == 0) {
        return 14;
    }
    return 255;
}

namespace {

struct DiskFormatReq {
    uint32_t u32Slot;
    uint32_t u32Zero;
};
static_assert(sizeof(DiskFormatReq) == 8);

}  // namespace

// The slot count is asked again before each slot, as the driver expects.
uint32_t EQU_FormatDisk(void)
{
    for (uint64_t ulSlot = 0; ulSlot < static_cast<uint8_t>(DEV_GET_HDISK_LOCAL_SLOT_NUM());
         ulSlot++) {
        uint8_t ucPresent = 0;
        uint32_t u32Ret = EQU_HdPresent(0, ulSlot, &ucPresent);
        if (u32Ret != EQU_OK) {
            return u32Ret;
        }
        if (ucPresent == 0) {
            continue;
        }
        DiskFormatReq stReq{static_cast<uint32_t>(ulSlot), 0};
        (void)DRV_DiskCtl(DRV_DISK_FORMAT_PREP, &stReq);  // its answer decides nothing
        u32Ret = EQU_HD_FormatSector(ulSlot);
        printf("\r\nSlot_%lu format :%s\n", static_cast<unsigned long>(ulSlot),
               u32Ret == EQU_OK ? "pass" : "fail");
        if (u32Ret != EQU_OK) {
            return u32Ret;
        }
    }
    return EQU_OK;
}

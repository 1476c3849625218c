// Common services of the test modules.
// Device access: /dev/hal_nvram (environment variables), /dev/hal_misc (I2C,
// CPU registers), /dev/hal_gpio, /dev/hal_rmc, and MII registers through an
// interface request on a local stream socket. Each call opens its node, issues
// one private request with a small record and closes the node again, except
// where a descriptor is deliberately left open (CPU registers on success, I2C
// write on failure).
// Shell services: operator confirmation on standard input, TFTP transfer with
// BusyBox tftp, shell runs judged by their wait status, a number read from a
// command's output, file existence; and the board-position keyword.
#include "equ_common.h"

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

constexpr const char *kNvramDev = "/dev/hal_nvram";
constexpr const char *kMiscDev = "/dev/hal_misc";
constexpr const char *kGpioDev = "/dev/hal_gpio";
constexpr const char *kRmcDev = "/dev/hal_rmc";

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

uint32_t nvramCall(unsigned long ulReq, EQU_ENV_S *pstEnv)
{
    int fd = open(kNvramDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nopen %s\n", kNvramDev);
        return EQU_FAIL;
    }
    // The driver works on our own copy, so a failed read cannot disturb the
    // caller's record and unterminated caller text stays within bounds.
    EQU_ENV_S stReq;
    memset(&stReq, 0, sizeof(stReq));
    memcpy(stReq.szName, pstEnv->szName, sizeof(stReq.szName) - 1);
    if (ulReq == kNvramSet) {
        memcpy(stReq.szValue, pstEnv->szValue, sizeof(stReq.szValue) - 1);
    }
    int iRet = ioctl(fd, ulReq, &stReq);
    int iErr = errno;
    if (iRet != 0) {
        if (ulReq == kNvramSet) {
            printf("\r\nFailed to set nvram value(%s) of %s, errno(%s)\n", stReq.szValue,
                   stReq.szName, strerror(iErr));
        } else {
            printf("\r\nFailed to get nvram valuee of %s, errno(%s)\n", stReq.szName,
                   strerror(iErr));
        }
        close(fd);
        return EQU_FAIL;
    }
    if (ulReq == kNvramGet) {
        memcpy(pstEnv->szValue, stReq.szValue, sizeof(stReq.szValue));
        pstEnv->szValue[sizeof(pstEnv->szValue) - 1] = '\0';
    }
    close(fd);
    return EQU_OK;
}

// Returns the socket, or -1 after the message.
int miiOpen(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, MiiReq *pstReq)
{
    int sock = socket(1, 1, 0);  // AF_UNIX, SOCK_STREAM: only the name routes the request
    if (sock < 0) {
        printf("\r\nopen socket failed! [%s]", strerror(errno));
        return -1;
    }
    memset(pstReq, 0, sizeof(*pstReq));
    snprintf(pstReq->szName, sizeof(pstReq->szName), "eth%u", u32EthIdx);
    pstReq->u16PhyId = static_cast<uint16_t>(u32PhyAddr);
    pstReq->u16RegNum = static_cast<uint16_t>(u32Reg);
    return sock;
}

int gpioOpen(void)
{
    int fd = open(kGpioDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nopen %s failed\n", kGpioDev);
    }
    return fd;
}

}  // namespace

uint32_t EQU_GetEnvFromFlash(EQU_ENV_S *pstEnv)
{
    return nvramCall(kNvramGet, pstEnv);
}

uint32_t EQU_SetEnvToFlash(EQU_ENV_S *pstEnv)
{
    return nvramCall(kNvramSet, pstEnv);
}

uint32_t EQU_Mdio_Read(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t *pu32Val)
{
    MiiReq stReq;
    int sock = miiOpen(u32EthIdx, u32PhyAddr, u32Reg, &stReq);
    if (sock < 0) {
        return EQU_FAIL;
    }
    if (ioctl(sock, kMiiRead, &stReq) < 0) {
        printf("\r\nfailed read mdio [0x%x:0x%x]%s", u32PhyAddr, u32Reg, strerror(errno));
        close(sock);
        return EQU_FAIL;
    }
    *pu32Val = stReq.u16ValOut;
    close(sock);
    return EQU_OK;
}

uint32_t EQU_Mdio_Write(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t u32Val)
{
    MiiReq stReq;
    int sock = miiOpen(u32EthIdx, u32PhyAddr, u32Reg, &stReq);
    if (sock < 0) {
        return EQU_FAIL;
    }
    stReq.u16ValIn = static_cast<uint16_t>(u32Val);
    if (ioctl(sock, kMiiWrite, &stReq) < 0) {
        printf("\r\nfailed write mdio [0x%x:0x%x:0x%x]%s", u32PhyAddr, u32Reg, u32Val,
               strerror(errno));
        close(sock);
        return EQU_FAIL;
    }
    close(sock);
    return EQU_OK;
}

uint32_t EQU_I2C_Read(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Len,
                      uint32_t *pu32Val)
{
    int fd = open(kMiscDev, O_RDWR);
    if (fd < 0) {
        printf("\r\n\r\n Failed to open %s file \r\n", kMiscDev);
        return EQU_FAIL;
    }
    I2cReq stReq{ucBus, ucDevAddr, ucReg, 0, 0, u32Len};
    if (ioctl(fd, kI2cRead, &stReq) < 0) {
        printf("\r\nFailed to read i2c device:%x:%x %s\n", ucDevAddr, ucReg, strerror(errno));
        close(fd);
        return EQU_FAIL;
    }
    *pu32Val = stReq.u32Data;
    close(fd);
    return EQU_OK;
}

// The node stays open when the write fails; the driver has always been used
// this way and the chip check runs it only a few times per session.
uint32_t EQU_I2C_Write(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Val)
{
    int fd = open(kMiscDev, O_RDWR);
    if (fd < 0) {
        printf("\r\n\r\n Failed to open %s file \r\n", kMiscDev);
        return EQU_FAIL;
    }
    I2cReq stReq{ucBus, ucDevAddr, ucReg, 0, u32Val, 1};
    if (ioctl(fd, kI2cWrite, &stReq) < 0) {
        printf("\r\n\r\nFailed to write i2c device:%x:%x %s", ucDevAddr, ucReg, strerror(errno));
        return EQU_FAIL;
    }
    close(fd);
    return EQU_OK;
}

// Both register calls keep the node open after a successful request.
int32_t EQU_CPUReg_Read(uint32_t u32RegAddr, uint32_t *pu32Val)
{
    int fd = open(kMiscDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nopen %s failed\n", kMiscDev);
        return -1;
    }
    CpuRegReq stReq{u32RegAddr, 0};
    if (ioctl(fd, kCpuRegRead, &stReq) != 0) {
        printf("\r\nread cpu reg failed, uiRegAddr 0x%x", u32RegAddr);
        close(fd);
        return EQU_FAIL;
    }
    *pu32Val = stReq.u32Val;
    return EQU_OK;
}

int32_t EQU_CPUReg_Write(uint32_t u32RegAddr, uint32_t u32Val)
{
    int fd = open(kMiscDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nopen %s failed\n", kMiscDev);
        return -1;
    }
    CpuRegReq stReq{u32RegAddr, u32Val};
    if (ioctl(fd, kCpuRegWrite, &stReq) != 0) {
        printf("\r\nread cpu reg failed, uiRegAddr 0x%x, uiRegVal 0x%x", u32RegAddr, u32Val);
        close(fd);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_GPIO_ReadByte(uint32_t u32Group, uint32_t u32Bit, uint32_t *pu32Val)
{
    int fd = gpioOpen();
    if (fd < 0) {
        return EQU_FAIL;
    }
    GpioReq stReq{u32Group, u32Bit, 0};
    if (ioctl(fd, kGpioRead, &stReq) != 0) {
        printf("\r\nget gpio value failed, GpioIdx %d, BitIdx %d", u32Group, u32Bit);
        close(fd);
        return EQU_FAIL;
    }
    *pu32Val = stReq.u32Val;
    close(fd);
    return EQU_OK;
}

namespace {

// The two GPIO requests on an open descriptor, with their messages; the
// caller closes the descriptor on either result.
uint32_t gpioWriteOn(int fd, uint32_t u32Group, uint32_t u32Bit, uint32_t u32Val)
{
    GpioReq stReq{u32Group, u32Bit, u32Val};
    if (ioctl(fd, kGpioWrite, &stReq) != 0) {
        printf("\r\nset gpio value failed, GpioIdx %d, BitIdx %d,  Value %d", u32Group, u32Bit,
               u32Val);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t gpioModeOn(int fd, uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode)
{
    GpioReq stReq{u32Group, u32Bit, u32Mode};
    if (ioctl(fd, kGpioMode, &stReq) != 0) {
        printf("\r\nset gpio mode failed, GpioIdx %d, BitIdx %d,  SetMode %d", u32Group, u32Bit,
               u32Mode);
        return EQU_FAIL;
    }
    return EQU_OK;
}

}  // namespace

uint32_t EQU_GPIO_WriteByte(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Val)
{
    int fd = gpioOpen();
    if (fd < 0) {
        return EQU_FAIL;
    }
    uint32_t u32Ret = gpioWriteOn(fd, u32Group, u32Bit, u32Val);
    close(fd);
    return u32Ret;
}

uint32_t EQU_GPIO_SetMode(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode)
{
    int fd = gpioOpen();
    if (fd < 0) {
        return EQU_FAIL;
    }
    uint32_t u32Ret = gpioModeOn(fd, u32Group, u32Bit, u32Mode);
    close(fd);
    return u32Ret;
}

uint32_t EQU_GPIO_SetModeAndWrite(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode,
                                  uint32_t u32Val)
{
    int fd = gpioOpen();
    if (fd < 0) {
        return EQU_FAIL;
    }
    uint32_t u32Ret = gpioModeOn(fd, u32Group, u32Bit, u32Mode);
    if (u32Ret == EQU_OK) {
        u32Ret = gpioWriteOn(fd, u32Group, u32Bit, u32Val);
    }
    close(fd);
    return u32Ret;
}

uint32_t EQU_SetRmcTestMode(uint32_t u32Mode)
{
    int fd = open(kRmcDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nFailed to open %s file", kRmcDev);
        return EQU_FAIL;
    }
    RmcReq stReq{u32Mode, 0};
    if (ioctl(fd, kRmcMode, &stReq) != 0) {
        printf("\r\nFailed to set rmc to equtest mode");
        close(fd);
        return EQU_FAIL;
    }
    close(fd);
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

void eraseLast(void)
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
                eraseLast();
            }
        } else if (isprint(c)) {
            printf("%c", c);
            if (n < sizeof(acBuf) - 1) {
                acBuf[n++] = static_cast<char>(c);
            } else {
                eraseLast();
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

// Common services of the test modules: the board's device nodes (nvram, MDIO,
// I2C, CPU registers, GPIO, remote-control receiver) and the handle every
// module opens them with, the numeric parameter check, shell runs, TFTP
// transfer, operator confirmation.
#pragma once
#include <cstdint>
#include <fcntl.h>

#define EQU_OK   0
#define EQU_FAIL 200

#define EQU_ENV_NAME_LEN  64
#define EQU_ENV_VALUE_LEN 5120

// nvram variable record: exactly the driver's layout (5,184 bytes).
struct EQU_ENV_S {
    char szName[EQU_ENV_NAME_LEN];
    char szValue[EQU_ENV_VALUE_LEN];
};
static_assert(sizeof(EQU_ENV_S) == 5184);

// TFTP server address, set by "set serverip"; in memory only.
extern char acEquServerip[16];

// ---- board nodes ----
inline constexpr const char *EQU_DEV_NVRAM = "/dev/hal_nvram";
inline constexpr const char *EQU_DEV_MISC = "/dev/hal_misc";
inline constexpr const char *EQU_DEV_GPIO = "/dev/hal_gpio";
inline constexpr const char *EQU_DEV_RMC = "/dev/hal_rmc";
inline constexpr const char *EQU_DEV_WATCHDOG = "/dev/hal_watchdog";
inline constexpr const char *EQU_DEV_SC = "/dev/hal_sc";
inline constexpr const char *EQU_DEV_SWITCH = "/dev/hal_switch";
inline constexpr const char *EQU_DEV_GPS = "/dev/ttyS9";
inline constexpr const char *EQU_DEV_RUNTIME = "/dev/hal_runtime";
inline constexpr const char *EQU_DEV_HARDDISK = "/dev/harddisk";
inline constexpr const char *EQU_PROC_DISK_NAME = "/proc/disk/disk_name";
inline constexpr const char *EQU_PROC_WATCHDOG_STATUS = "/proc/watchdog_status";

// Open-failure messages, printed around the node's path.
struct EQU_OPEN_MSG_S {
    const char *pcBefore;
    const char *pcAfter;
};
inline constexpr EQU_OPEN_MSG_S EQU_MSG_OPEN_FILE{"\r\nFailed to open ", " file"};
inline constexpr EQU_OPEN_MSG_S EQU_MSG_OPEN_FAILED{"\r\nopen ", " failed"};
inline constexpr EQU_OPEN_MSG_S EQU_MSG_OPEN_FAILED_NL{"\r\nopen ", " failed\n"};

// One open board node (or socket): opened by the constructor, which prints
// the caller's open-failure message, and closed by the destructor, so no
// return path can forget the close. Requests keep errno for error().
class EQU_Node {
  public:
    // pcShown names the node in the open-failure message when it is not pcPath.
    EQU_Node(const char *pcPath, const EQU_OPEN_MSG_S &stOpenMsg, int iFlags = O_RDWR,
             const char *pcShown = nullptr);
    // Adopts a descriptor opened elsewhere (a socket); -1 is a failed open.
    explicit EQU_Node(int fd) : m_fd(fd) {}
    ~EQU_Node();
    EQU_Node(const EQU_Node &) = delete;
    EQU_Node &operator=(const EQU_Node &) = delete;

    explicit operator bool() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    // The driver's own result: callers judge it (some nodes fail only below 0).
    int request(unsigned long ulReq, void *pvRecord);
    int request(unsigned long ulReq, unsigned long ulPlainArg);
    const char *error() const;  // text of the last failed request's errno
    // Gives the descriptor up without closing it; every call site says why.
    void leak_open() { m_fd = -1; }

  private:
    int m_fd;
    int m_iErrno = 0;
};

// Numeric parameter check: a digit string with an optional leading '-' (a
// lone "-" reads as 0) whose value lies in lo..hi; leading zeros and any
// length are read, overlong strings are out of range. The value is stored
// when given.
bool EQU_InRange(const char *pcText, int32_t lo, int32_t hi, int64_t *plVal = nullptr);

// ---- device access ----
uint32_t EQU_GetEnvFromFlash(EQU_ENV_S *pstEnv);
uint32_t EQU_SetEnvToFlash(EQU_ENV_S *pstEnv);
uint32_t EQU_Mdio_Read(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t *pu32Val);
uint32_t EQU_Mdio_Write(uint32_t u32EthIdx, uint32_t u32PhyAddr, uint32_t u32Reg, uint32_t u32Val);
uint32_t EQU_I2C_Read(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Len,
                      uint32_t *pu32Val);
uint32_t EQU_I2C_Write(uint8_t ucBus, uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Val);
int32_t EQU_CPUReg_Read(uint32_t u32RegAddr, uint32_t *pu32Val);  // 0, 200, or -1 (open failed)
int32_t EQU_CPUReg_Write(uint32_t u32RegAddr, uint32_t u32Val);
uint32_t EQU_GPIO_ReadByte(uint32_t u32Group, uint32_t u32Bit, uint32_t *pu32Val);
uint32_t EQU_GPIO_WriteByte(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Val);
uint32_t EQU_GPIO_SetMode(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode);
// Set-mode then write on one open of the GPIO node (how output lines such as
// the LEDs and heaters are driven); stops at the first failure.
uint32_t EQU_GPIO_SetModeAndWrite(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode,
                                  uint32_t u32Val);
uint32_t EQU_SetRmcTestMode(uint32_t u32Mode);
void EQU_Print_Bit(uint8_t ucVal, uint8_t ucWidth);

// ---- shell, transfer, confirmation ----
int EQU_CheckYesInput(void);  // 1 confirmed, else 0
uint32_t EQU_TftpTransferFile(const char *pcLocal, const char *pcRemote, uint8_t ucPut);
uint32_t EQU_IsFileExist(const char *pcPath);
uint32_t EQU_System(const char *pcCmd);
uint32_t EQU_CmdRes_Num(const char *pcCmd);  // all ones on failure
// Formats every present local hard disk; 0 or the first failure's status.
uint32_t EQU_FormatDisk(void);

// "mainboard" 0, "netboard" 14, anything else 255.
uint32_t EQU_GetBoardPos(const char *pcBoard);

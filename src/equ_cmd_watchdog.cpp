// Watchdog test: "test watchdog" arms the hardware watchdog (request 0x70108
// on /dev/hal_watchdog), lets it run for five seconds, reads its state from
// /proc/watchdog_status and tells the driver library (DRV_PerpCtl 0x1628) to
// show that the watchdog runs. The armed watchdog's node is left open on
// success: closing it would stop the watchdog the operator is checking.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "drv_api.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kWatchdogReq = 0x70108;
constexpr off_t kStatusOffset = 68;

struct WatchdogReq {
    uint32_t u32Mode;
    uint32_t au32Rsv[2];
};
static_assert(sizeof(WatchdogReq) == 12);

struct WatchdogIndicate {
    uint8_t aucVal[3];
};
static_assert(sizeof(WatchdogIndicate) == 3);

// 0 when the status file shows the watchdog running (a number above 1).
uint32_t EQU_Watchdog_Status(void)
{
    static const char *const pcPath = "/proc/watchdog_status";
    int fd = open(pcPath, O_RDONLY);
    if (fd < 0) {
        printf("\r\nopen %s failed", pcPath);
        return EQU_FAIL;
    }
    char acNum[3] = {0};
    if (lseek(fd, kStatusOffset, SEEK_SET) == kStatusOffset) {
        ssize_t n = read(fd, acNum, 2);
        acNum[n > 0 ? n : 0] = '\0';
    }
    close(fd);
    return atoi(acNum) > 1 ? EQU_OK : EQU_FAIL;
}

uint32_t EQU_WatchdogTest(uint32_t u32Mode)
{
    static const char *const pcDev = "/dev/hal_watchdog";
    int fd = open(pcDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nFailed to open %s file", pcDev);
        return EQU_FAIL;
    }
    WatchdogReq stReq;
    memset(&stReq, 0, sizeof(stReq));
    stReq.u32Mode = u32Mode;
    if (ioctl(fd, kWatchdogReq, &stReq) != 0) {
        close(fd);
        printf("\r\nFailed to test watchdog");
        return EQU_FAIL;
    }
    sleep(5);
    if (EQU_Watchdog_Status() != EQU_OK) {
        close(fd);
        printf("\r\nFailed to test watchdog");
        return EQU_FAIL;
    }
    WatchdogIndicate stInd{{0, 7, 255}};
    if (DRV_PerpCtl(DRV_PERP_WDT_INDICATE, &stInd) != 0) {
        close(fd);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdProc_WatchDog(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_WatchdogTest(1);
}

}  // namespace

void EQU_Cmd_Watchdog(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", szEquHelpComm, 0);
    CLI_AddKey(pT, 2, "watchdog", szEquHelpWatchdog, 0);
    CLI_InstallCmd(pT, 2, "$1 $2", EQU_CmdProc_WatchDog);
    CLI_FreeCmdTemplet(pT, 2);
}

// Watchdog test.
//
// Commands:
//   test watchdog
// Pass: the watchdog was armed, runs after five seconds and the driver
// library took the indication. Fail: a node did not open, the arming request
// or the indication failed, or the status shows the watchdog not running.
//
// Touches: /dev/hal_watchdog request 0x70108 (mode 1) to arm it;
// /proc/watchdog_status, two characters at byte 68, running when above 1;
// DRV_PerpCtl 0x1628 with the bytes 0, 7, 255 to show that it runs.
//
// Kept on purpose:
// - On a pass the armed watchdog's node stays open: closing it would stop
//   the watchdog the operator is checking.
// - A failed indication fails the test without a message.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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
    EQU_Node file(EQU_PROC_WATCHDOG_STATUS, EQU_MSG_OPEN_FAILED, O_RDONLY);
    if (!file) {
        return EQU_FAIL;
    }
    char acNum[3] = {0};
    if (lseek(file.fd(), kStatusOffset, SEEK_SET) == kStatusOffset) {
        ssize_t n = read(file.fd(), acNum, 2);
        acNum[n > 0 ? n : 0] = '\0';
    }
    return atoi(acNum) > 1 ? EQU_OK : EQU_FAIL;
}

uint32_t EQU_WatchdogTest(uint32_t u32Mode)
{
    EQU_Node node(EQU_DEV_WATCHDOG, EQU_MSG_OPEN_FILE);
    if (!node) {
        return EQU_FAIL;
    }
    WatchdogReq stReq{u32Mode, {0, 0}};
    if (node.request(kWatchdogReq, &stReq) != 0) {
        printf("\r\nFailed to test watchdog");
        return EQU_FAIL;
    }
    sleep(5);
    if (EQU_Watchdog_Status() != EQU_OK) {
        printf("\r\nFailed to test watchdog");
        return EQU_FAIL;
    }
    WatchdogIndicate stInd{{0, 7, 255}};
    if (DRV_PerpCtl(DRV_PERP_WDT_INDICATE, &stInd) != 0) {
        return EQU_FAIL;
    }
    // Closing the node would stop the watchdog that has just been armed.
    node.leak_open();
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_WatchDog(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_WatchdogTest(1);
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Watchdog(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "watchdog", HELP_WATCHDOG);
    CLI_InstallCmd(pT, 2, "$1 $2", EQU_CmdProc_WatchDog);  // test watchdog
    CLI_FreeCmdTemplet(pT, 2);
}

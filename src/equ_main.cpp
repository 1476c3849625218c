// Program entry: options, kernel log level, stopping the recorder's own
// services, driver and board start-up, command registration, the banner, the
// interactive loop and the shutdown order. Touches /proc/sys/kernel/printk
// (through the shell), the driver library and /dev/hal_rmc.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "drv_api.h"
#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_common.h"

namespace {

// The recorder's services, stopped so that they leave the hardware to us.
const char *const kKillCmds[] = {
    "killall -9 appwatch 1>/dev/null 2>&1",  "killall -9 panelagent 1>/dev/null 2>&1",
    "killall -9 dbserver 1>/dev/null 2>&1",  "killall -9 mainsvc 1>/dev/null 2>&1",
    "killall -9 websvc 1>/dev/null 2>&1",    "killall -9 mediasvc 1>/dev/null 2>&1",
    "killall -9 hwmanager 1>/dev/null 2>&1",
};

// A watchdog may restart a service between the kills of one pass; the second
// pass catches what came back.
void killUserTasks(void)
{
    for (int iPass = 0; iPass < 2; iPass++) {
        for (const char *pcCmd : kKillCmds) {
            (void)system(pcCmd);
        }
        sleep(1);
    }
}

uint32_t EQU_Usage(void)
{
    printf("\r\nEQU_Usage: cli [options]");
    printf("\r\n        -d   do not kill user tasks");
    printf("\r\n        -p   do not disable kernel printk");
    printf("\r\n        -h   show help");
    puts("\r\n");
    return static_cast<uint32_t>(-1);
}

int32_t EQU_Init(EQU_BOARD_DESC_S **ppstBoardDesc)
{
    int iRet = DRV_Init(200);
    if (iRet != 0) {
        return iRet;
    }
    uint32_t u32BoardId = 0;
    iRet = DRV_SysCtl(DRV_SYS_GET_BOARD_ID, &u32BoardId);
    if (iRet != 0) {
        return iRet;
    }
    int32_t lRet = static_cast<int32_t>(EQU_BoardDescCreat(u32BoardId, ppstBoardDesc));
    if (lRet != 0) {
        return lRet;
    }
    lRet = static_cast<int32_t>(EQU_SetRmcTestMode(1));
    if (lRet != 0) {
        return lRet;
    }
    // A board without a working GPS port is still tested.
    if (DRV_GPS_SetBaudRate(9600) != 0) {
        printf("\r\nSetup gps port rate 9600 failed");
    }
    return 0;
}

void EQU_RegisterCmd(const EQU_BOARD_DESC_S *pstDesc)
{
    for (uint32_t u32Idx = 0; u32Idx < pstDesc->u32CmdNum; u32Idx++) {
        pstDesc->pfnCmdTbl[u32Idx]();
    }
}

int EQU_Cleanup(void)
{
    (void)DRV_DeInit();
    EQU_BoardDescDestroy();
    (void)EQU_SetRmcTestMode(0);
    return 0;
}

}  // namespace

int main(int argc, char *argv[])
{
    // Prompts carry no newline and the shell tools we start share our
    // descriptor: unbuffered output keeps every byte in order and on time.
    setvbuf(stdout, nullptr, _IONBF, 0);

    bool bKillUserTasks = true;
    bool bDisablePrintk = true;
    int iOpt;
    while ((iOpt = getopt(argc, argv, "dhp")) != -1) {
        switch (iOpt) {
        case 'd':
            bKillUserTasks = false;
            break;
        case 'p':
            bDisablePrintk = false;
            break;
        default:
            return static_cast<int>(EQU_Usage());
        }
    }

    // -p raises the level to 7 rather than leaving it alone.
    (void)system(bDisablePrintk ? "echo 0 > /proc/sys/kernel/printk"
                                : "echo 7 > /proc/sys/kernel/printk");
    if (bKillUserTasks) {
        killUserTasks();
    }

    // A failed start-up leaves at once: nothing was set up that needs undoing
    // on the test station.
    if (EQU_Init(&gpstEquBoardDesc) != 0 || gpstEquBoardDesc == nullptr) {
        return -1;
    }
    EQU_RegisterCmd(gpstEquBoardDesc);

    printf("\r\n**********************");
    printf("\r\nEQUIPMENT_TEST_OK");
    printf("\r\n**********************");

    CLI_ProcessCmd(gpstEquBoardDesc->pcModel);

    if (EQU_Cleanup() != 0) {
        return -1;
    }
    (void)system("sync");
    return 0;
}

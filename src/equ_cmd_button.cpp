// Panel key test: "test reset button [secs]" asks the GPIO driver (request
// 0x40636 on /dev/hal_gpio) whether the reset key is pressed; "test powerkey
// button [secs]" polls the remote-control driver (request 0x4010D on
// /dev/hal_rmc) once a second until the key reads pressed. The key's keyword
// comes before "button" in both commands.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kResetKeyReq = 0x40636;
constexpr unsigned long kResetKeyArg = 15;
constexpr unsigned long kPowerKeyReq = 0x4010D;
constexpr uint32_t kPowerKeyCode = 21;
constexpr uint32_t kKey20Code = 20;  // request 0x4010C
constexpr uint8_t kDefaultSeconds = 15;

struct KeyReq {
    uint32_t u32KeyCode;
    uint32_t u32Rsv;
    uint32_t u32State;  // 0 while the key is held
};
static_assert(sizeof(KeyReq) == 12);

// Polls the key once a second, at most ucMaxSec times.
uint32_t EQU_ButtonTestSingleKey(uint8_t ucMaxSec, unsigned long ulReq)
{
    static const char *const pcDev = "/dev/hal_rmc";
    int fd = open(pcDev, O_RDWR);
    if (fd < 0) {
        printf("\r\nFailed to open %s file", pcDev);
        return EQU_FAIL;
    }
    KeyReq stReq{ulReq == kPowerKeyReq ? kPowerKeyCode : kKey20Code, 0, 0};
    bool bPressed = false;
    for (uint32_t i = 0; i < ucMaxSec; i++) {
        if (ioctl(fd, ulReq, &stReq) != 0) {
            close(fd);
            printf("\r\nfailed to test single button");
            return EQU_FAIL;
        }
        if (stReq.u32State == 0) {
            bPressed = true;
            break;
        }
        usleep(1000000);
    }
    if (!bPressed) {
        printf("\r\nerror:no press key!");
    }
    close(fd);
    return bPressed ? EQU_OK : EQU_FAIL;
}

uint64_t EQU_CmdCheck_MaxTime(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    // Accumulated with a cap, so that a long digit string cannot wrap into range.
    uint32_t u32Val = 0;
    bool bDigits = pcToken[0] != '\0';
    for (const char *p = pcToken; *p != '\0'; p++) {
        if (*p < '0' || *p > '9') {
            bDigits = false;
            break;
        }
        u32Val = u32Val * 10 + static_cast<uint32_t>(*p - '0');
        u32Val = u32Val > 255 ? 256 : u32Val;
    }
    if (!bDigits || u32Val < 1 || u32Val > 255) {
        printf("\r\ntime can only be 1~255s, please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// The typed time is accepted but not used: the driver decides how long the
// request waits for the key.
uint64_t EQU_Set_ResetButton(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int fd = open("/dev/hal_gpio", O_RDWR);
    if (fd < 0) {
        printf("\r\nFailed to open %s file", "/dev/hal_rmc");
        return EQU_FAIL;
    }
    if (ioctl(fd, kResetKeyReq, kResetKeyArg) != 0) {
        printf("\r\nerror: reset button isn't pressed");
        close(fd);
        return EQU_FAIL;
    }
    close(fd);
    return EQU_OK;
}

uint64_t EQU_CmdProc_PowerButton(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulNum = 0;
    uint8_t ucMaxSec = kDefaultSeconds;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    if (ulNum == 1) {
        uint64_t ulVal = 0;
        CLI_GetUlongValuePara(pstCmdPara, 0, &ulVal);
        ucMaxSec = static_cast<uint8_t>(ulVal);
    }
    return EQU_ButtonTestSingleKey(ucMaxSec, kPowerKeyReq);
}

}  // namespace

void EQU_Cmd_Button(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", szEquHelpComm, 0);
    CLI_AddKey(pT, 2, "button", szEquHelpButton, 0);
    CLI_AddKey(pT, 3, "reset", szEquHelpButton, 1);
    CLI_AddKey(pT, 4, "powerkey", szEquHelpButton, 2);
    CLI_AddPara(pT, 5, CLI_INTEGER, EQU_CmdCheck_MaxTime, szEquHelpButton, 3);
    if (gpstEquBoardDesc->ucResetKey != 0) {
        CLI_InstallCmd(pT, 5, "$1 $3 $2", EQU_Set_ResetButton);
        CLI_InstallCmd(pT, 5, "$1 $3 $2 $5", EQU_Set_ResetButton);
    }
    if (gpstEquBoardDesc->ucPowerKey != 0) {
        CLI_InstallCmd(pT, 5, "$1 $4 $2", EQU_CmdProc_PowerButton);
        CLI_InstallCmd(pT, 5, "$1 $4 $2 $5", EQU_CmdProc_PowerButton);
    }
    CLI_FreeCmdTemplet(pT, 5);
}

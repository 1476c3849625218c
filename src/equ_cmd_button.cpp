// Panel key test.
//
// Commands (the key's keyword comes before "button"):
//   test reset button [secs]      installed when the board has a reset key
//   test powerkey button [secs]   installed when the board has a power key
// Pass: the key was seen pressed. Fail: the node did not open, a request
// failed, or (power key) the key was not pressed within secs (default 15).
//
// Values:
//   <time>  1~255, seconds; the reset key accepts it and ignores it
//
// Touches: /dev/hal_gpio request 0x40636 with the plain value 15 (the driver
// waits for or reports the reset key); /dev/hal_rmc request 0x4010D with a
// key record for key 21, polled once a second.
//
// Kept on purpose:
// - The reset key's open-failure message names /dev/hal_rmc although
//   /dev/hal_gpio is opened: operators' scripts match the text as it is.
// - The reset key request's argument is a plain value, not a record.
#include <cstdint>
#include <cstdio>
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
    EQU_Node node(EQU_DEV_RMC, EQU_MSG_OPEN_FILE);
    if (!node) {
        return EQU_FAIL;
    }
    KeyReq stReq{ulReq == kPowerKeyReq ? kPowerKeyCode : kKey20Code, 0, 0};
    for (uint32_t i = 0; i < ucMaxSec; i++) {
        if (node.request(ulReq, &stReq) != 0) {
            printf("\r\nfailed to test single button");
            return EQU_FAIL;
        }
        if (stReq.u32State == 0) {
            return EQU_OK;
        }
        usleep(1000000);
    }
    printf("\r\nerror:no press key!");
    return EQU_FAIL;
}

// ---- validators ----

uint64_t EQU_CmdCheck_MaxTime(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 1, 255)) {
        printf("\r\ntime can only be 1~255s, please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_Set_ResetButton(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    EQU_Node node(EQU_DEV_GPIO, EQU_MSG_OPEN_FILE, O_RDWR, EQU_DEV_RMC);
    if (!node) {
        return EQU_FAIL;
    }
    if (node.request(kResetKeyReq, kResetKeyArg) != 0) {
        printf("\r\nerror: reset button isn't pressed");
        return EQU_FAIL;
    }
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

// ---- registration ----

void EQU_Cmd_Button(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "button", HELP_BUTTON);
    CLI_AddKey(pT, 3, "reset", HELP_BUTTON_RESET);
    CLI_AddKey(pT, 4, "powerkey", HELP_BUTTON_POWERKEY);
    CLI_AddPara(pT, 5, CLI_INTEGER, EQU_CmdCheck_MaxTime, HELP_BUTTON_TIME);
    if (gpstEquBoardDesc->ucResetKey != 0) {
        CLI_InstallCmd(pT, 5, "$1 $3 $2", EQU_Set_ResetButton);     // test reset button
        CLI_InstallCmd(pT, 5, "$1 $3 $2 $5", EQU_Set_ResetButton);  // test reset button 10
    }
    if (gpstEquBoardDesc->ucPowerKey != 0) {
        CLI_InstallCmd(pT, 5, "$1 $4 $2", EQU_CmdProc_PowerButton);     // test powerkey button
        CLI_InstallCmd(pT, 5, "$1 $4 $2 $5", EQU_CmdProc_PowerButton);  // test powerkey button 10
    }
    CLI_FreeCmdTemplet(pT, 5);
}

// Power supply status.
//
// Commands:
//   test powers 1|2 status
// Pass: the driver library answered for the supply, whatever it reported
// (the operator reads the three lines). Fail: an index other than 1 or 2,
// or the request failed.
//
// Values:
//   <index>  1 or 2 (the command refuses others)
//
// Touches: DRV_PerpCtl 0x1629 (supply index in; present flag, work status
// and fan status out, each non-zero for present / normal).
//
// Kept on purpose:
// - The index has no validator: the handler refuses it, so a wrong index
//   still shows the command's frame with its message.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "drv_api.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

struct PowerReq {
    uint8_t ucIndex;
    uint8_t ucPresent;
    uint8_t ucWork;
    uint8_t ucFan;
};
static_assert(sizeof(PowerReq) == 4);

const char *normal_word(uint8_t ucFlag)
{
    return ucFlag != 0 ? "normal" : "abnormal";
}

// ---- handlers ----

uint64_t EQU_CmdProc_GetPowerStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    char acIndex[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acIndex);
    long lIndex = strtol(acIndex, nullptr, 10);  // atoi's reading, without its overflow
    if (lIndex != 1 && lIndex != 2) {
        printf("\r\nerror: index must be 1 or 2 ,please check!");
        return EQU_FAIL;
    }
    PowerReq stReq{static_cast<uint8_t>(lIndex), 0, 0, 0};
    if (DRV_PerpCtl(DRV_PERP_POWER_STATUS, &stReq) != 0) {
        printf("\r\nGet power status failed!");
        return EQU_FAIL;
    }
    printf("\r\nprnstatus:  %s", stReq.ucPresent != 0 ? "present" : "absent");
    printf("\r\nfanstatus:  %s", normal_word(stReq.ucFan));
    printf("\r\nworkstatus: %s", normal_word(stReq.ucWork));
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Power(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "powers", HELP_POWER);
    CLI_AddPara(pT, 3, CLI_STRING, nullptr, HELP_POWER_INDEX);
    CLI_AddKey(pT, 4, "status", HELP_POWER_STATUS);
    CLI_InstallCmd(pT, 4, "$1 $2 $3 $4", EQU_CmdProc_GetPowerStatus);  // test powers 1 status
    CLI_FreeCmdTemplet(pT, 4);
}

// Alarm inputs and outputs.
//
// Commands:
//   test alarm get input N|all         N below the board's input count
//   test alarm set output WORD N|all   N below the board's output count
// Pass: every request reached the driver library. Fail: a request failed
// (the handlers return the number of failed requests).
//
// Values:
//   <input port num>   0~1 or all (the board's alarm inputs)
//   <output port num>  0~1 or all (the board's alarm outputs)
//   <on/off>           any word: "on" switches on, any other word off
//
// Touches: DRV_PerpCtl 0x1618 (input number in, level out: non-zero is
// "close") and 0x1619 (output number, state 1 on / 0 off).
//
// Kept on purpose:
// - Any WORD is accepted: "on" switches on, every other word switches off,
//   and the word is echoed as typed. Harness scripts send "off" and
//   "close" alike.
// - Two bytes of the output record are left unset: the driver reads only
//   the number, the state and the byte set to 0.
// - The template builds an alarm slot parameter that no rule uses.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "drv_api.h"
#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

struct AlarmInReq {
    uint32_t u32Input;
    uint8_t ucLevel;  // non-zero: closed
};
static_assert(sizeof(AlarmInReq) == 8);

struct AlarmOutReq {
    uint32_t u32Output;
    uint8_t ucState;
    uint8_t ucUnset1;
    uint8_t ucZero;
    uint8_t ucUnset2;
};
static_assert(sizeof(AlarmOutReq) == 8 && offsetof(AlarmOutReq, ucZero) == 6);

// A port number below the count, or "all"; otherwise the caller's message,
// the highest number and "or all". A port is digits alone: the shared range
// check reads "-" and "-0" as 0, which no alarm port is typed as.
uint64_t check_port(const char *pcToken, uint8_t ucCount, const char *pcMsg)
{
    if (strcmp(pcToken, "all") == 0 ||
        (CLI_IsOnlydigitString(pcToken) && EQU_InRange(pcToken, 0, ucCount - 1))) {
        return EQU_OK;
    }
    printf("%s%d or all", pcMsg, ucCount - 1);
    return EQU_FAIL;
}

// The ports a parameter selects: one number, or 0..count-1 for "all".
void port_range(const char *pcPort, uint8_t ucCount, uint32_t *pu32First, uint32_t *pu32End)
{
    if (strcmp(pcPort, "all") == 0) {
        *pu32First = 0;
        *pu32End = ucCount;
        return;
    }
    int64_t lPort = 0;
    EQU_InRange(pcPort, 0, ucCount - 1, &lPort);  // the validator accepted it
    *pu32First = static_cast<uint32_t>(lPort);
    *pu32End = *pu32First + 1;
}

// ---- validators ----

uint64_t EQU_CmdCheck_AlarmInPort(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return check_port(pcToken, gpstEquBoardDesc->ucAlarmInNum, "\r\nAlarm input number must be 0-");
}

uint64_t EQU_CmdCheck_AlarmOutPort(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return check_port(pcToken, gpstEquBoardDesc->ucAlarmOutNum,
                      "\r\nAlarm output number must be 0-");
}

uint64_t EQU_CmdCheck_AlarmSlot(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return check_port(pcToken, gpstEquBoardDesc->ucAlarmSlotNum, "\r\nuislotNum must be 0-");
}

// Accepts every word (see the header).
uint64_t EQU_CmdCheck_OnOff(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strcmp(pcToken, "on") != 0 || strcmp(pcToken, "off") != 0) {
        return EQU_OK;
    }
    printf("\r\ncmd can only be on or off, please check");
    return EQU_FAIL;
}

// ---- handlers ----

uint64_t EQU_CmdProc_AlarmGetInStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    uint32_t u32First = 0;
    uint32_t u32End = 0;
    port_range(acPort, gpstEquBoardDesc->ucAlarmInNum, &u32First, &u32End);
    uint64_t ulFailed = 0;
    for (uint32_t u32In = u32First; u32In < u32End; u32In++) {
        AlarmInReq stReq{u32In, 0};
        if (DRV_PerpCtl(DRV_PERP_ALARM_IN, &stReq) != 0) {
            printf("\r\nerror:Alarm %d input get failed", u32In);
            ulFailed++;
            continue;
        }
        printf("\r\nAlarm %d input get : %s", u32In, stReq.ucLevel != 0 ? "close" : "open");
    }
    return ulFailed;
}

uint64_t EQU_CmdProc_AlarmSetOutStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    char acWord[CLI_MAX_TOKEN_LEN] = {0};
    char acPort[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acWord);
    CLI_GetOctStringPara(pstCmdPara, 1, acPort);
    uint8_t ucState = strcmp(acWord, "on") == 0 ? 1 : 0;
    uint32_t u32First = 0;
    uint32_t u32End = 0;
    port_range(acPort, gpstEquBoardDesc->ucAlarmOutNum, &u32First, &u32End);
    uint64_t ulFailed = 0;
    for (uint32_t u32Out = u32First; u32Out < u32End; u32Out++) {
        AlarmOutReq stReq;
        stReq.u32Output = u32Out;
        stReq.ucState = ucState;
        stReq.ucZero = 0;
        if (DRV_PerpCtl(DRV_PERP_ALARM_OUT, &stReq) != 0) {
            printf("\r\nerror:Alarm %d output set : %s failed", u32Out, acWord);
            ulFailed++;
            continue;
        }
        printf("\r\nAlarm %d output set : %s", u32Out, acWord);
    }
    return ulFailed;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Alarm(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "alarm", HELP_ALARM);
    CLI_AddKey(pT, 3, "set", HELP_ALARM_SET);
    CLI_AddKey(pT, 4, "get", HELP_ALARM_GET);
    CLI_AddKey(pT, 5, "output", HELP_ALARM_OUTPUT);
    CLI_AddKey(pT, 6, "input", HELP_ALARM_INPUT);
    CLI_AddPara(pT, 7, CLI_STRING, EQU_CmdCheck_OnOff, HELP_COMM_ON_OFF);
    CLI_AddPara(pT, 8, CLI_STRING, EQU_CmdCheck_AlarmSlot, HELP_COMM_SLOT);
    CLI_AddPara(pT, 9, CLI_STRING, EQU_CmdCheck_AlarmInPort, HELP_COMM_INPUT_PORT_NUM);
    CLI_AddPara(pT, 10, CLI_STRING, EQU_CmdCheck_AlarmOutPort, HELP_COMM_OUTPUT_PORT_NUM);
    CLI_InstallCmd(pT, 10, "$1 $2 $4 $6 $9",
                   EQU_CmdProc_AlarmGetInStatus);  // test alarm get input all
    // test alarm set output on 0
    CLI_InstallCmd(pT, 10, "$1 $2 $3 $5 $7 $10", EQU_CmdProc_AlarmSetOutStatus);
    CLI_FreeCmdTemplet(pT, 10);
}

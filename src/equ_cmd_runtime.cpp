// Run-time record: the first-use date and the accumulated running time that
// the board's driver keeps, cleared before shipping.
//
// Commands (not under "test"; the leading "_" is part of the keywords):
//   runtime _reset device work-time           clear the record
//   runtime _display device work-time         show it
//   runtime _device work-time record          switch recording on
//   runtime undo _device work-time record     switch recording off
// Pass: the requests succeeded (reset: and the record reads back all zero).
// Fail: a node did not open or a request failed.
//
// Touches: /dev/hal_runtime, one open per request: 0x30209/0x3020A first-use
// date {year - 2000, month, day}, 0x3020B/0x3020C run time {days, hours},
// 0x3020D/0x3020E recording on/off with 24 zero bytes.
//
// Kept on purpose:
// - Every date and time request, reads included, fails with "set first time
//   failed"; the date setter's open failure names hal_runtime, the others
//   "runtime".
// - The run-time setter refuses a first field of 24 or more although it is
//   the days: the driver's own limit (the only caller writes zeros).
#include <cstdint>
#include <cstdio>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kFirstUseGet = 0x30209;
constexpr unsigned long kFirstUseSet = 0x3020A;
constexpr unsigned long kTotalUsedGet = 0x3020B;
constexpr unsigned long kTotalUsedSet = 0x3020C;
constexpr unsigned long kRecordOn = 0x3020D;
constexpr unsigned long kRecordOff = 0x3020E;

constexpr EQU_OPEN_MSG_S kMsgOpenRuntime{"\r\nOpen runtime failed", ""};
constexpr EQU_OPEN_MSG_S kMsgOpenHalRuntime{"\r\nOpen hal_runtime failed", ""};

struct FirstUseDate {
    int32_t iYear;  // counted from 2000
    int32_t iMonth;
    int32_t iDay;
};
static_assert(sizeof(FirstUseDate) == 12);

struct UsedTime {
    int32_t iDays;
    int32_t iHours;
};
static_assert(sizeof(UsedTime) == 8);

struct RecordSwitch {
    uint8_t aucZero[24];
};
static_assert(sizeof(RecordSwitch) == 24);

// One request on its own open of the node; failures print the record's text.
uint32_t runtime_request(unsigned long ulReq, void *pvRec, const EQU_OPEN_MSG_S &stOpenMsg,
                         const char *pcFailMsg)
{
    // The open message carries no path: shown as given.
    EQU_Node node(EQU_DEV_RUNTIME, stOpenMsg, O_RDWR, "");
    if (!node) {
        return EQU_FAIL;
    }
    if (node.request(ulReq, pvRec) != 0) {
        printf("%s", pcFailMsg);
        return EQU_FAIL;
    }
    return EQU_OK;
}

constexpr const char *kMsgTimeFailed = "\r\nioctl: set first time failed";

uint32_t EQU_GetFirstUseTime(uint32_t u32Rsv, FirstUseDate *pstDate)
{
    (void)u32Rsv;
    return runtime_request(kFirstUseGet, pstDate, kMsgOpenRuntime, kMsgTimeFailed);
}

uint32_t EQU_SetFirstUseTime(uint32_t u32Rsv, FirstUseDate *pstDate)
{
    (void)u32Rsv;
    if (pstDate->iDay >= 32 || pstDate->iMonth >= 13) {
        printf("\r\nError: invalid param");
        return EQU_FAIL;
    }
    return runtime_request(kFirstUseSet, pstDate, kMsgOpenHalRuntime, kMsgTimeFailed);
}

uint32_t EQU_GetTotalUsedTime(uint32_t u32Rsv, UsedTime *pstTime)
{
    (void)u32Rsv;
    return runtime_request(kTotalUsedGet, pstTime, kMsgOpenRuntime, kMsgTimeFailed);
}

uint32_t EQU_SetTotalUsedTime(uint32_t u32Rsv, UsedTime *pstTime)
{
    (void)u32Rsv;
    if (pstTime->iDays >= 24) {
        printf("\r\nError: invalid param");
        return EQU_FAIL;
    }
    return runtime_request(kTotalUsedSet, pstTime, kMsgOpenRuntime, kMsgTimeFailed);
}

uint32_t EQU_SetRunTimeStatus(unsigned long ulReq)
{
    RecordSwitch stRec{};
    return runtime_request(ulReq, &stRec, kMsgOpenRuntime, "\r\nioctl: set runtime status failed");
}

// ---- handlers ----

uint64_t EQU_CmdProc_ResetRuntime(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_ResetRuntime();
}

uint64_t EQU_CmdProc_DisplayRuntime(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    FirstUseDate stDate{};
    UsedTime stTime{};
    if (EQU_GetFirstUseTime(0, &stDate) != EQU_OK || EQU_GetTotalUsedTime(0, &stTime) != EQU_OK) {
        return EQU_FAIL;
    }
    char acDate[16] = "0000-00-00";
    if (stDate.iYear + stDate.iMonth + stDate.iDay != 0) {
        // Digit by digit from the value, as the board has always shown it.
        int32_t iYear = stDate.iYear + 2000;
        const int32_t aiDigit[8] = {iYear / 1000,     iYear / 100 % 10,   iYear / 10 % 10,
                                    iYear % 10,       stDate.iMonth / 10, stDate.iMonth % 10,
                                    stDate.iDay / 10, stDate.iDay % 10};
        const size_t aulPos[8] = {0, 1, 2, 3, 5, 6, 8, 9};
        for (size_t i = 0; i < 8; i++) {
            acDate[aulPos[i]] = static_cast<char>('0' + aiDigit[i]);
        }
    }
    printf("\r\n%-32s : %s", "First used date", acDate);
    printf("\r\n%-32s : %d day(s) %d hour(s)", "Accumulated runtime", stTime.iDays, stTime.iHours);
    return EQU_OK;
}

uint64_t EQU_CmdProc_OpenRecord(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_SetRunTimeStatus(kRecordOn);
}

uint64_t EQU_CmdProc_CloseRecord(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_SetRunTimeStatus(kRecordOff);
}

}  // namespace

uint32_t EQU_ResetRuntime(void)
{
    FirstUseDate stDate{0, 0, 0};
    UsedTime stTime{0, 0};
    if (EQU_SetFirstUseTime(0, &stDate) != EQU_OK || EQU_SetTotalUsedTime(0, &stTime) != EQU_OK) {
        return EQU_FAIL;
    }
    if (EQU_GetFirstUseTime(0, &stDate) != EQU_OK || EQU_GetTotalUsedTime(0, &stTime) != EQU_OK) {
        return EQU_FAIL;
    }
    bool bClear = stDate.iYear == 0 && stDate.iMonth == 0 && stDate.iDay == 0 &&
                  stTime.iDays == 0 && stTime.iHours == 0;
    return bClear ? EQU_OK : EQU_FAIL;
}

// ---- registration ----

void EQU_Cmd_Runtime(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "runtime", HELP_RUNTIME);
    CLI_AddKey(pT, 2, "_reset", HELP_RUNTIME_RESET);
    CLI_AddKey(pT, 3, "device", HELP_RUNTIME_DEVICE);
    CLI_AddKey(pT, 4, "work-time", HELP_RUNTIME_WORK_TIME);
    CLI_AddKey(pT, 5, "_display", HELP_RUNTIME_DISPLAY);
    CLI_AddKey(pT, 6, "_device", HELP_RUNTIME_OPEN);
    CLI_AddKey(pT, 7, "record", HELP_RUNTIME_RECORD);
    CLI_AddKey(pT, 8, "undo", HELP_RUNTIME_UNDO);
    CLI_InstallCmd(pT, 8, "$1 $2 $3 $4",
                   EQU_CmdProc_ResetRuntime);  // runtime _reset device work-time
    CLI_InstallCmd(pT, 8, "$1 $5 $3 $4",
                   EQU_CmdProc_DisplayRuntime);  // runtime _display device work-time
    CLI_InstallCmd(pT, 8, "$1 $6 $4 $7",
                   EQU_CmdProc_OpenRecord);  // runtime _device work-time record
    CLI_InstallCmd(pT, 8, "$1 $8 $6 $4 $7",
                   EQU_CmdProc_CloseRecord);  // runtime undo _device work-time record
    CLI_FreeCmdTemplet(pT, 8);
}

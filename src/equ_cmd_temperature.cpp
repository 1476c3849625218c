// Temperature checks and heater switch.
//
// Commands:
//   test mainboard temperature LOW HIGH   limits -100~100, LOW <= HIGH
//   test netboard temperature LOW HIGH
//   test heat 0|1|all ctrl on|off
// Pass: the sensor's reading lies within LOW..HIGH (both inclusive, signed);
// the heater lines were set. Fail: the driver library could not read the
// sensor, the reading is outside the limits, a GPIO request failed.
//
// Values:
//   <temp_low>     -100~100, degrees Celsius
//   <temp_high>    -100~100, degrees Celsius
//   <heat_slot>    0~1 or all
//   <heat_switch>  on or off
//
// Touches: DRV_PerpCtl 0x160E (main board) and 0x163C (net board), each
// filling a signed 64-bit reading; /dev/hal_gpio set-mode 0x4061F (mode 1,
// output) then set-value 0x40610 on group 0, bit 21 (heater 0) or bit 22
// (heater 1), through the shared GPIO service.
//
// Kept on purpose:
// - A heater is switched on by writing 0 to its line: the heater driver
//   stage inverts.
// - "all" switches heater 0 first and stops at the first failure, leaving
//   heater 1 as it was.
// - The template also builds a sensor number, a numeric heater slot and
//   "status"; no rule uses them.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "drv_api.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr int kDefaultLow = -10;
constexpr int kDefaultHigh = 80;
constexpr uint32_t kHeatGroup = 0;
constexpr uint32_t kHeatBit0 = 21;
constexpr uint32_t kHeatBit1 = 22;
constexpr uint32_t kGpioOutput = 1;
constexpr uint32_t kHeatOn = 0;
constexpr uint32_t kHeatOff = 1;

uint32_t EQU_GpioControl(uint32_t u32Group, uint32_t u32Bit, uint32_t u32Mode, uint32_t u32Val)
{
    return EQU_GPIO_SetModeAndWrite(u32Group, u32Bit, u32Mode, u32Val);
}

uint32_t EQU_SetHeatState(uint32_t u32Slot, uint32_t u32State)
{
    uint32_t u32Bit = u32Slot == 1 ? kHeatBit1 : kHeatBit0;
    uint32_t u32Ret = EQU_GpioControl(kHeatGroup, u32Bit, kGpioOutput, u32State);
    if (u32Ret != EQU_OK) {
        printf("\r\nGpioControl failed, GpioIndex = %lu, GpioBit = %lu, HeatState = %lu", 0ul,
               static_cast<unsigned long>(u32Bit), static_cast<unsigned long>(u32State));
    }
    return u32Ret;
}

// Reads one sensor and prints its line of the table; chip 1 is the main board.
uint64_t temperature_check(CLI_CMD_PARA_S *pstCmdPara, uint32_t u32Req, int iChip,
                           const char *pcBoard)
{
    int iLow = kDefaultLow;
    int iHigh = kDefaultHigh;
    if (pstCmdPara->ulParaLen == 2) {
        // The validator kept both within -100..100.
        iLow = atoi(pstCmdPara->astPara[0].szPara);
        iHigh = atoi(pstCmdPara->astPara[1].szPara);
    }
    if (iLow > iHigh) {
        printf("\r\nlow temperature should smaller than high temperature");
        return EQU_FAIL;
    }
    int64_t lTemp = 0;
    if (DRV_PerpCtl(u32Req, &lTemp) != 0) {
        printf("\r\nFailed to get %s temperature", pcBoard);
        return EQU_FAIL;
    }
    printf("\r\nCHIP  LOW_LIMIT  CURRENT_TEMPERATURE HIGH_LIMIT  STATUS");
    bool bNormal = iLow <= lTemp && lTemp <= iHigh;
    // The reading is shown as an int: its low 32 bits, as the board prints it.
    printf("\r\n%d%6d%11d%20d%17s", iChip, iLow, static_cast<int32_t>(lTemp), iHigh,
           bNormal ? "normal" : "abnormal");
    return bNormal ? EQU_OK : EQU_FAIL;
}

// ---- validators ----

uint64_t EQU_CmdCheck_Temperature(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, -100, 100)) {
        printf("\r\nthe temperature value or format not support, should be -100 ~ 100");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_TempID(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 0, 1)) {
        printf("\r\nthe ID you input should be 0 or 1");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_HeatSlot(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 0, 1)) {
        printf("\r\nthe Slot you input should be 0 or 1");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_HeatCtlSlot(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (CLI_IsdigitString(pcToken)) {
        if (!EQU_InRange(pcToken, 0, 1)) {
            printf("\r\nthe Slot you input should be 0/1");
            return EQU_FAIL;
        }
        return EQU_OK;
    }
    if (strcmp(pcToken, "all") != 0) {
        printf("\r\nthe Slot you input should be all");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_HeatSwitch(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strcmp(pcToken, "on") != 0 && strcmp(pcToken, "off") != 0) {
        printf("\r\nCmd can only be on or off, please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_Temperature_MainBoard(CLI_CMD_PARA_S *pstCmdPara)
{
    return temperature_check(pstCmdPara, DRV_PERP_MAIN_TEMP, 1, "mainboard");
}

uint64_t EQU_CmdProc_Temperature_NetBoard(CLI_CMD_PARA_S *pstCmdPara)
{
    return temperature_check(pstCmdPara, DRV_PERP_NET_TEMP, 0, "netboard");
}

uint64_t EQU_CmdProc_HeatControl(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    if (ulNum != 2) {
        printf("\r\nInput error!");
        return EQU_FAIL;
    }
    char acSlot[CLI_MAX_TOKEN_LEN] = {0};
    char acSwitch[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acSlot);
    CLI_GetOctStringPara(pstCmdPara, 1, acSwitch);
    uint32_t u32State = strcmp(acSwitch, "on") == 0 ? kHeatOn : kHeatOff;
    bool bAll = !CLI_IsdigitString(acSlot);
    uint32_t u32First = bAll ? 0 : static_cast<uint32_t>(atoi(acSlot));
    uint32_t u32Last = bAll ? 1 : u32First;
    for (uint32_t u32Slot = u32First; u32Slot <= u32Last; u32Slot++) {
        uint32_t u32Ret = EQU_SetHeatState(u32Slot, u32State);
        if (u32Ret != EQU_OK) {
            printf("\r\nerror:set heat module [%u] state fail!", u32Slot);
            return u32Ret;
        }
    }
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Temperature(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "temperature", HELP_TEMP);
    CLI_AddPara(pT, 3, CLI_INTEGER, EQU_CmdCheck_Temperature, HELP_TEMP_LOW);
    CLI_AddPara(pT, 4, CLI_INTEGER, EQU_CmdCheck_Temperature, HELP_TEMP_HIGH);
    CLI_AddPara(pT, 5, CLI_INTEGER, EQU_CmdCheck_TempID, HELP_TEMP_ID);
    CLI_AddKey(pT, 6, "heat", HELP_TEMP_HEAT);
    CLI_AddPara(pT, 7, CLI_INTEGER, EQU_CmdCheck_HeatSlot, HELP_TEMP_HEAT_SLOT);
    CLI_AddKey(pT, 8, "status", HELP_TEMP_HEAT_STATUS);
    CLI_AddKey(pT, 9, "ctrl", HELP_TEMP_HEAT_CTRL);
    CLI_AddPara(pT, 10, CLI_STRING, EQU_CmdCheck_HeatSwitch, HELP_TEMP_HEAT_SWITCH);
    CLI_AddKey(pT, 11, "mainboard", HELP_TEMP_MAINBOARD);
    CLI_AddPara(pT, 12, CLI_STRING, EQU_CmdCheck_HeatCtlSlot, HELP_TEMP_HEAT_SLOT);
    CLI_AddKey(pT, 13, "netboard", HELP_TEMP_NETBOARD);
    // test mainboard temperature -10 60
    CLI_InstallCmd(pT, 13, "$1 $11 $2 $3 $4", EQU_CmdProc_Temperature_MainBoard);
    // test netboard temperature -10 60
    CLI_InstallCmd(pT, 13, "$1 $13 $2 $3 $4", EQU_CmdProc_Temperature_NetBoard);
    CLI_InstallCmd(pT, 13, "$1 $6 $12 $9 $10", EQU_CmdProc_HeatControl);  // test heat all ctrl on
    CLI_FreeCmdTemplet(pT, 13);
}

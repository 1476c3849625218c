// RAM test flags: the boot loader tests the memory; this module switches
// that test on or off and reports what the boot loader left in nvram.
//
// Commands (built, but in no board's command table):
//   test ram flag set enable|disable    nvram memtest = "ys" / "no"
//   test ram flag get
//   test ram bus | test ram unit        per chip from mem_result
//   test ram capacity                   mem_size in MB
// Pass: the variables were read or written; bus/unit: no chip failed.
// Fail: an nvram access failed, or a chip failed the boot loader's test.
//
// Touches: nvram variables memtest, mem_result (hex, bit i = chip i + 1
// failed) and mem_size (hex bytes); the board's ucDdrNum.
//
// Kept on purpose: "ys" is the stored word for enabled; only the first two
// characters are compared when reading it back.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

// The variable's value in a fresh record; false when it cannot be read.
bool env_get(const char *pcName, EQU_ENV_S &stEnv)
{
    memset(&stEnv, 0, sizeof(stEnv));
    snprintf(stEnv.szName, sizeof(stEnv.szName), "%s", pcName);
    return EQU_GetEnvFromFlash(&stEnv) == EQU_OK;
}

uint32_t EQU_SetRamFlag(uint32_t u32Enable)
{
    EQU_ENV_S stEnv;
    memset(&stEnv, 0, sizeof(stEnv));
    snprintf(stEnv.szName, sizeof(stEnv.szName), "memtest");
    snprintf(stEnv.szValue, sizeof(stEnv.szValue), "%s", u32Enable ? "ys" : "no");
    return EQU_SetEnvToFlash(&stEnv) == EQU_OK ? EQU_OK : EQU_FAIL;
}

uint32_t EQU_GetRamFlag(uint32_t *pu32Enable)
{
    EQU_ENV_S stEnv;
    if (!env_get("memtest", stEnv)) {
        return EQU_FAIL;
    }
    if (strncmp(stEnv.szValue, "ys", 2) == 0) {
        *pu32Enable = 1;
    } else if (strncmp(stEnv.szValue, "no", 2) == 0) {
        *pu32Enable = 0;
    } else {
        printf("\r\ninvalid memtest value %s", stEnv.szValue);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_GetRamTestResult(void)
{
    EQU_ENV_S stEnv;
    if (!env_get("mem_result", stEnv)) {
        return EQU_FAIL;
    }
    unsigned long ulResult = strtoul(stEnv.szValue, nullptr, 16);
    bool bFail = false;
    for (uint32_t i = 0; i < gpstEquBoardDesc->ucDdrNum; i++) {
        bool bBad = i < 8 * sizeof(ulResult) && (ulResult >> i) & 1u;
        printf(bBad ? "\r\nCPU%d-DDR%d test .............. error"
                    : "\r\nCPU%d-DDR%d test .............. ok",
               0, i + 1);
        bFail = bFail || bBad;
    }
    return bFail ? EQU_FAIL : EQU_OK;
}

uint32_t EQU_GetRamCapacity(uint64_t *pulMb)
{
    EQU_ENV_S stEnv;
    if (!env_get("mem_size", stEnv)) {
        return EQU_FAIL;
    }
    *pulMb = strtoull(stEnv.szValue, nullptr, 16) >> 20;
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_RamFlagSetEnable(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_SetRamFlag(1);
}

uint64_t EQU_CmdProc_RamFlagSetDisable(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_SetRamFlag(0);
}

uint64_t EQU_CmdProc_RamFlagGet(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    uint32_t u32Enable = 0;
    if (EQU_GetRamFlag(&u32Enable) != EQU_OK) {
        return EQU_FAIL;
    }
    printf("\r\nram flag get: %s", u32Enable ? "enable" : "disable");
    return EQU_OK;
}

uint64_t EQU_CmdProc_RamUnit(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_GetRamTestResult();
}

uint64_t EQU_CmdProc_RamCapacity(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    uint64_t ulMb = 0;
    if (EQU_GetRamCapacity(&ulMb) != EQU_OK) {
        return EQU_FAIL;
    }
    printf("\r\nram capacity: %ldMB", static_cast<long>(ulMb));
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Ram(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "ram", HELP_RAM);
    CLI_AddKey(pT, 3, "flag", HELP_RAM_FLAG);
    CLI_AddKey(pT, 4, "get", HELP_COMM_GET);
    CLI_AddKey(pT, 5, "set", HELP_COMM_SET);
    CLI_AddKey(pT, 6, "enable", HELP_COMM_ENABLE);
    CLI_AddKey(pT, 7, "disable", HELP_COMM_DISABLE);
    CLI_AddKey(pT, 8, "bus", HELP_RAM_BUS);
    CLI_AddKey(pT, 9, "unit", HELP_RAM_UNIT);
    CLI_AddKey(pT, 10, "capacity", HELP_RAM_CAPACITY);
    CLI_InstallCmd(pT, 10, "$1 $2 $3 $5 $6",
                   EQU_CmdProc_RamFlagSetEnable);  // test ram flag set enable
    CLI_InstallCmd(pT, 10, "$1 $2 $3 $5 $7",
                   EQU_CmdProc_RamFlagSetDisable);                  // test ram flag set disable
    CLI_InstallCmd(pT, 10, "$1 $2 $3 $4", EQU_CmdProc_RamFlagGet);  // test ram flag get
    CLI_InstallCmd(pT, 10, "$1 $2 $8", EQU_CmdProc_RamUnit);        // test ram bus
    CLI_InstallCmd(pT, 10, "$1 $2 $9", EQU_CmdProc_RamUnit);        // test ram unit
    CLI_InstallCmd(pT, 10, "$1 $2 $10", EQU_CmdProc_RamCapacity);   // test ram capacity
    CLI_FreeCmdTemplet(pT, 10);
}

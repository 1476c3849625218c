// CPU information.
//
// Command (no board's table lists this module):
//   test cpu info      "CPU type" from /proc/cpuinfo's Hardware line, with
//                      the fixed frequency and core count of this SoC
// Pass: the shell ran. Fail: the shell could not be started.
//
// Touches: "cat /proc/cpuinfo | grep -i Hardware" into /tmp/cpuinfo_value,
// removed afterwards.
//
// Kept on purpose:
// - Frequency (2.2GHZ) and cores (4) are fixed texts, not measured.
// - The type is the text between the first and second ':' of the last of
//   the first two lines, blank and line end included; without a Hardware
//   line it prints as "(null)".
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr const char *kCpuInfoValue = "/tmp/cpuinfo_value";
constexpr int kLineLen = 200;

// The second ':'-separated piece of the file's second line (or its first,
// when there is only one line).
void print_type(FILE *pf)
{
    char acLine[kLineLen] = {};
    for (int i = 0; i < 2 && pf != nullptr; i++) {
        if (fgets(acLine, kLineLen, pf) == nullptr) {
            break;
        }
    }
    char *pcSave = nullptr;
    const char *pcType = strtok_r(acLine, ":", &pcSave);
    pcType = pcType != nullptr ? strtok_r(nullptr, ":", &pcSave) : nullptr;
    printf("\r\nCPU type         :%s", pcType != nullptr ? pcType : "(null)");
}

// ---- handlers ----

uint64_t EQU_CmdProc_CpuInfo(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (system("cat /proc/cpuinfo | grep -i Hardware > /tmp/cpuinfo_value") < 0) {
        printf("\r\nget cpuinfo error");
        return EQU_FAIL;
    }
    // The shell has just made the file; a missing one reads as empty.
    FILE *pf = fopen(kCpuInfoValue, "r");
    print_type(pf);
    printf("CPU frequency    :%s\r\n", " 2.2GHZ");
    printf("CPU cores        :%s\r\n", " 4");
    if (pf != nullptr) {
        fclose(pf);
    }
    (void)system("rm /tmp/cpuinfo_value");
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_CpuInfo(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "cpu", HELP_CPUINFO);
    CLI_AddKey(pT, 3, "info", HELP_COMM_INFO);
    CLI_InstallCmd(pT, 3, "$1 $2 $3", EQU_CmdProc_CpuInfo);  // test cpu info
    CLI_FreeCmdTemplet(pT, 3);
}

// Software update state, one-step upgrade and power-off.
//
// Commands:
//   test software status     the first line of /tmp/update_status
//   test software update     runs /update/fullupgrade
//   test software shutdown   quiets the console, then runs poweroff
// Pass: the status file was there; the program exited with status 0.
// Fail: no status file (silently); the program failed.
//
// Needs: "test software status" fails silently until the upgrade program
// has written /tmp/update_status.
//
// Touches: /tmp/update_status (written by the upgrade program); the shell
// commands "/update/fullupgrade", "echo 4 > /proc/sys/kernel/printk" and
// "poweroff".
//
// Kept on purpose:
// - The status line is printed after "\n" alone, without its last
//   character (its newline), and the file is left open: harness scripts
//   parse the output exactly as the board's tool has always written it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr const char *kStatusFile = "/tmp/update_status";
constexpr int kStatusLen = 63;  // 62 characters and the terminator

// ---- handlers ----

uint64_t EQU_CmdProc_GetStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    FILE *fp = fopen(kStatusFile, "r");
    if (fp == nullptr) {
        return EQU_FAIL;
    }
    char acLine[kStatusLen] = {0};
    if (fgets(acLine, sizeof(acLine), fp) == nullptr) {
        acLine[0] = '\0';
    }
    size_t ulLen = strlen(acLine);
    if (ulLen > 0) {
        acLine[ulLen - 1] = '\0';
    }
    printf("\nStatus: %s", acLine);
    return EQU_OK;  // fp stays open (see the header)
}

uint64_t EQU_CmdProc_Update(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (system("/update/fullupgrade") != 0) {
        printf("\r\nerror: update all failed");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdProc_ShutDown(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    (void)system("echo 4 > /proc/sys/kernel/printk");
    if (system("poweroff") != 0) {
        printf("\r\nerror: shutdown failed");
        return EQU_FAIL;
    }
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Software(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "software", HELP_SOFTWARE);
    CLI_AddKey(pT, 3, "status", HELP_SOFTWARE_STATUS);
    CLI_AddKey(pT, 4, "update", HELP_SOFTWARE_UPDATE);
    CLI_AddKey(pT, 5, "shutdown", HELP_SOFTWARE_SHUTDOWN);
    CLI_InstallCmd(pT, 5, "$1 $2 $3", EQU_CmdProc_GetStatus);  // test software status
    CLI_InstallCmd(pT, 5, "$1 $2 $4", EQU_CmdProc_Update);     // test software update
    CLI_InstallCmd(pT, 5, "$1 $2 $5", EQU_CmdProc_ShutDown);   // test software shutdown
    CLI_FreeCmdTemplet(pT, 5);
}

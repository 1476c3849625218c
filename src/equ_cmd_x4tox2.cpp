// PCIe upstream lane configuration: one x4 link or two x2 links.
//
// Commands:
//   test x4tox2 2X2.tar.bz2      fetch the two-x2 package, confirm, install it
//   test x2tox4 1X4.tar.bz2      fetch the one-x4 package, confirm, install it
// Pass: the package was installed, or the operator did not confirm (nothing
// changed). Fail: the wrong package for the direction, the transfer failed
// (no server address, no such file on the server) or the tool failed.
//
// Needs: "set serverip", and the package on the test PC's TFTP server.
//
// Values:
//   <filename>  2X2.tar.bz2 or 1X4.tar.bz2 (the command refuses the wrong one)
//
// Touches: TFTP from acEquServerip into /tmp/<package>; the board's lane
// tool "x4tox2 -p /tmp/<package>", which reads the direction from the
// package (both commands run the same tool).
//
// Kept on purpose:
// - The validator takes either package name for either command; the handler
//   then refuses the one that does not fit, with its own message.
// - The package stays in /tmp after the command.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr const char *kPkgX2 = "2X2.tar.bz2";
constexpr const char *kPkgX4 = "1X4.tar.bz2";

struct LaneSwitch {
    const char *pcPkg;
    const char *pcNameMsg;
    const char *pcFailMsg;
};
constexpr LaneSwitch kToX2{kPkgX2, "\r\nerror: x4tox2 update, pkg name must be 2X2.tar.bz2",
                           "\r\nx4 to x2 update is failed"};
constexpr LaneSwitch kToX4{kPkgX4, "\r\nerror: x2tox4 update, pkg name must be 1X4.tar.bz2",
                           "\r\nx2 to x4 update is failed"};

uint64_t switch_lanes(CLI_CMD_PARA_S *pstCmdPara, const LaneSwitch &stSw)
{
    char acFile[CLI_MAX_TOKEN_LEN] = {};
    CLI_GetOctStringPara(pstCmdPara, 0, acFile);
    if (strcmp(acFile, stSw.pcPkg) != 0) {
        printf("%s", stSw.pcNameMsg);
        return EQU_FAIL;
    }
    char acLocal[CLI_MAX_TOKEN_LEN + 8];
    snprintf(acLocal, sizeof(acLocal), "/tmp/%s", acFile);
    if (EQU_TftpTransferFile(acLocal, acFile, 0) != EQU_OK) {
        return EQU_FAIL;
    }
    if (EQU_CheckYesInput() == 0) {
        return EQU_OK;
    }
    char acCmd[CLI_MAX_TOKEN_LEN + 24];
    snprintf(acCmd, sizeof(acCmd), "x4tox2 -p /tmp/%s", acFile);
    if (EQU_System(acCmd) != EQU_OK) {
        printf("%s", stSw.pcFailMsg);
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- validators ----

uint64_t EQU_CmdCheck_FileName(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strcmp(pcToken, kPkgX4) == 0 || strcmp(pcToken, kPkgX2) == 0) {
        return EQU_OK;
    }
    printf("\r\nfile name is %s, it must be 1X4.tar.bz2 or 2X2.tar.bz2, please check", pcToken);
    return EQU_FAIL;
}

// ---- handlers ----

uint64_t EQU_CmdProc_X4TOX2(CLI_CMD_PARA_S *pstCmdPara)
{
    return switch_lanes(pstCmdPara, kToX2);
}

uint64_t EQU_CmdProc_X2TOX4(CLI_CMD_PARA_S *pstCmdPara)
{
    return switch_lanes(pstCmdPara, kToX4);
}

}  // namespace

// ---- registration ----

void EQU_Cmd_x4tox2(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "x4tox2", HELP_X4TOX2);
    CLI_AddKey(pT, 3, "x2tox4", HELP_X4TOX2_X2TOX4);
    CLI_AddPara(pT, 4, CLI_STRING, EQU_CmdCheck_FileName, HELP_X4TOX2_FILENAME);
    CLI_InstallCmd(pT, 4, "$1 $2 $4", EQU_CmdProc_X4TOX2);   // test x4tox2 2X2.tar.bz2
    CLI_InstallCmd(pT, 4, "$1 $3 $4 ", EQU_CmdProc_X2TOX4);  // test x2tox4 1X4.tar.bz2
    CLI_FreeCmdTemplet(pT, 4);
}

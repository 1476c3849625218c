// Link state of the copper and fiber ports.
//
// Commands:
//   test ethernet PORT link copper    PORT a copper port or "all"
//   test ethernet PORT link fiber     PORT a fiber port or "all"
// Each port is reported ok or error; the status is the number of ports in
// error. A driver failure ends the command at once.
// Pass: every port asked for has its link up. Fail: a port's link stayed
// down, or a driver request failed.
//
// Values:
//   <port num>  0~19 or all (the board's copper ports)
//
// Touches: DRV_PerpCtl 0x1605 (byte 0 = 0, byte 1 = the copper port; byte 2
// the state, 1 = up), up to five queries a second apart per port.
//
// Kept on purpose:
// - The fiber record names no port (bytes 0 and 1 are 0): every fiber port
//   reads the same answer. Any non-zero state counts as up there.
// - A port word other than a number or "all" tests port 0.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "drv_api.h"
#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"
#include "equ_net.h"

namespace {

constexpr int kLinkTries = 5;

struct PortRange {
    uint32_t u32First;
    uint32_t u32End;  // one past the last
};

// A number selects that port, "all" ports 0..u32Count-1, anything else port 0.
PortRange port_range(CLI_CMD_PARA_S *pstCmdPara, uint32_t u32Count)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    if (strcmp(acPort, "all") == 0) {
        return {0, u32Count};
    }
    uint32_t u32Port = CLI_IsdigitString(acPort) ? static_cast<uint32_t>(atoi(acPort)) : 0;
    return {u32Port, u32Port + 1};
}

// The link state byte after up to five queries; -1 (printed) when the
// driver fails.
int link_state(uint8_t ucPort)
{
    uint8_t aucRec[16] = {0};
    aucRec[1] = ucPort;
    for (int i = 0; i < kLinkTries; i++) {
        if (DRV_PerpCtl(DRV_PERP_GET_LINK, aucRec) != 0) {
            printf("\r\nfailed get net link status");
            return -1;
        }
        if (aucRec[2] == 1) {
            break;
        }
        sleep(1);
    }
    return aucRec[2];
}

// ---- handlers ----

uint64_t EQU_CmdProc_NetLinkCopper(CLI_CMD_PARA_S *pstCmdPara)
{
    const EQU_BOARD_DESC_S *pstDesc = gpstEquBoardDesc;
    PortRange stRange = port_range(pstCmdPara, pstDesc->ucGeCopperNum + pstDesc->ucFeCopperNum);
    uint64_t ulErrors = 0;
    for (uint32_t p = stRange.u32First; p < stRange.u32End; p++) {
        int iState = link_state(static_cast<uint8_t>(p));
        if (iState < 0) {
            return EQU_FAIL;
        }
        ulErrors += iState == 1 ? 0 : 1;
        printf("\r\n%s%d test ............... %s", p < pstDesc->ucGeCopperNum ? "GE" : "FE",
               static_cast<int>(p), iState == 1 ? "ok" : "error");
    }
    return ulErrors;
}

uint64_t EQU_CmdProc_NetLinkFiber(CLI_CMD_PARA_S *pstCmdPara)
{
    PortRange stRange = port_range(pstCmdPara, gpstEquBoardDesc->ucFiberNum);
    uint64_t ulErrors = 0;
    for (uint32_t p = stRange.u32First; p < stRange.u32End; p++) {
        int iState = link_state(0);
        if (iState < 0) {
            return EQU_FAIL;
        }
        ulErrors += iState != 0 ? 0 : 1;
        printf("\r\nSFP%d test ............... %s", static_cast<int>(p),
               iState != 0 ? "ok" : "error");
    }
    return ulErrors;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_NetLink(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "ethernet", HELP_NET_ETHERNET);
    CLI_AddPara(pT, 3, CLI_STRING, EQU_CmdCheck_NetPort, HELP_COMM_PORT_NUM);
    CLI_AddKey(pT, 4, "link", HELP_NET_LINK);
    CLI_AddKey(pT, 5, "copper", HELP_NET_COPPER);
    CLI_AddKey(pT, 6, "fiber", HELP_NET_FIBER);
    // test ethernet all link copper
    CLI_InstallCmd(pT, 6, "$1 $2 $3 $4 $5", EQU_CmdProc_NetLinkCopper);
    // test ethernet 0 link fiber
    CLI_InstallCmd(pT, 6, "$1 $2 $3 $4 $6", EQU_CmdProc_NetLinkFiber);
    CLI_FreeCmdTemplet(pT, 6);
}

// Ping through a port once its link is up.
//
// Commands:
//   ping -c COUNT IP [PORT]          PORT 0..19 (0 without one)
//   ping -c COUNT IP PORT copper
//   ping -c COUNT IP PORT fiber      PORT 0..1
// Pass: the link came up within three queries and ping's summary line shows
// as many packets received as transmitted. Fail: a driver failure, the link
// still down, no summary line, or packets lost.
//
// Values:
//   <count>       any number, handed to ping
//   <ip address>  a dotted address of four segments, 7 to 15 characters
//   <port num>    0~19, one integer slot (no "all": the word is refused)
//
// Touches: DRV_PerpCtl 0x1605 (link state: bytes 0 and 1 the selector, byte 2
// 1 when up), up to three queries a second apart; the shell's
// "ping -c COUNT IP" (its first line holding "transmitted" and "received").
//
// Kept on purpose:
// - The link record carries a selector, never the port: 1 for ports 0 to 3
//   and for fiber, 0 for ports 4 to 19; the driver decides what it names.
// - The port check bounds fiber ports by the copper count too.
#include <cstdint>
#include <cstdio>
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

constexpr int kLinkTries = 3;
constexpr uint64_t kLinkDown = 1;

struct PingArgs {
    uint64_t ulCount = 0;
    char acIp[CLI_MAX_TOKEN_LEN] = {0};
    uint64_t ulPort = 0;
};

PingArgs ping_args(CLI_CMD_PARA_S *pstCmdPara)
{
    PingArgs stArgs;
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    CLI_GetUlongValuePara(pstCmdPara, 0, &stArgs.ulCount);
    CLI_GetOctStringPara(pstCmdPara, 1, stArgs.acIp);
    if (ulNum == 3) {
        CLI_GetUlongValuePara(pstCmdPara, 2, &stArgs.ulPort);
    }
    return stArgs;
}

// 0 when the link of selector S is up, kLinkDown after the last try, 200
// (printed) when the driver fails.
uint64_t link_wait(uint8_t ucSel)
{
    uint8_t aucRec[16] = {0};
    aucRec[0] = ucSel;
    aucRec[1] = ucSel;
    for (int i = 0; i < kLinkTries; i++) {
        if (DRV_PerpCtl(DRV_PERP_GET_LINK, aucRec) != 0) {
            printf("\r\nfailed get net link status");
            return EQU_FAIL;
        }
        if (aucRec[2] == 1) {
            return EQU_OK;
        }
        sleep(1);
    }
    return kLinkDown;
}

bool is_count(const char *pcWord)
{
    return pcWord[0] != '\0' && CLI_IsOnlydigitString(pcWord);
}

// 0 when ping's summary shows every packet back.
uint64_t ping_run(const PingArgs &stArgs)
{
    char acCmd[100];
    snprintf(acCmd, sizeof acCmd, "ping -c %d %.63s", static_cast<int>(stArgs.ulCount),
             stArgs.acIp);
    FILE *fp = popen(acCmd, "r");
    if (fp == nullptr) {
        return EQU_FAIL;
    }
    char acLine[128] = {0};
    bool bFound = false;
    while (!bFound && fgets(acLine, sizeof acLine, fp) != nullptr) {
        bFound = strstr(acLine, "transmitted") != nullptr && strstr(acLine, "received") != nullptr;
    }
    pclose(fp);
    char aacWord[5][16] = {};
    if (bFound) {
        sscanf(acLine, "%15s %15s %15s %15s %15s", aacWord[0], aacWord[1], aacWord[2], aacWord[3],
               aacWord[4]);
    }
    bool bPass =
        is_count(aacWord[0]) && is_count(aacWord[3]) && strcmp(aacWord[0], aacWord[3]) == 0;
    return bPass ? EQU_OK : EQU_FAIL;
}

}  // namespace

uint64_t EQU_CmdCheck_NetPort(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int32_t lPorts = gpstEquBoardDesc->ucGeCopperNum + gpstEquBoardDesc->ucFeCopperNum;
    if (strcmp(pcToken, "all") == 0 || EQU_InRange(pcToken, 0, lPorts - 1)) {
        return EQU_OK;
    }
    printf("\r\ncopper net port number must be 0-%d", lPorts - 1);
    return EQU_FAIL;
}

namespace {

// ---- handlers ----

uint64_t EQU_CmdProc_Ping(CLI_CMD_PARA_S *pstCmdPara)
{
    PingArgs stArgs = ping_args(pstCmdPara);
    if (stArgs.ulPort > 19) {
        printf("\r\nInvalid port num[%d] for ping, should be [0,19]",
               static_cast<int>(stArgs.ulPort));
        return EQU_FAIL;
    }
    uint64_t ulLink = link_wait(stArgs.ulPort <= 3 ? 1 : 0);
    if (ulLink == kLinkDown) {
        printf("\r\nerror:port GE%d link down", static_cast<int>(stArgs.ulPort));
    }
    if (ulLink != EQU_OK) {
        return EQU_FAIL;
    }
    return ping_run(stArgs);
}

uint64_t EQU_CmdProc_Ping_Copper(CLI_CMD_PARA_S *pstCmdPara)
{
    PingArgs stArgs = ping_args(pstCmdPara);
    int iPort = static_cast<int>(stArgs.ulPort);
    uint64_t ulLink = link_wait(stArgs.ulPort <= 3 ? 1 : 0);
    if (ulLink == EQU_FAIL) {
        return EQU_FAIL;
    }
    if (ulLink == kLinkDown) {
        printf("\r\nerror:port GE%d link down", iPort);
    }
    if (ulLink != EQU_OK || ping_run(stArgs) != EQU_OK) {
        printf("\r\nerror:port GE%d ping failed", iPort);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdProc_Ping_Fiber(CLI_CMD_PARA_S *pstCmdPara)
{
    PingArgs stArgs = ping_args(pstCmdPara);
    int iPort = static_cast<int>(stArgs.ulPort);
    if (stArgs.ulPort > 1) {
        printf("\r\nInvalid port num[%u] for fiber", static_cast<unsigned>(stArgs.ulPort));
        return EQU_FAIL;
    }
    uint64_t ulLink = link_wait(1);
    if (ulLink == EQU_FAIL) {
        return EQU_FAIL;
    }
    if (ulLink == kLinkDown) {
        printf("\r\nerror:port SFP%d link down", iPort);
    }
    if (ulLink != EQU_OK || ping_run(stArgs) != EQU_OK) {
        printf("\r\nerror:port SFP%d ping failed", iPort);
        return EQU_FAIL;
    }
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_NetPing(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "ping", HELP_NET_PING);
    CLI_AddKey(pT, 2, "-c", HELP_NET_PING_OPT);
    CLI_AddPara(pT, 3, CLI_INTEGER, nullptr, HELP_NET_PING_COUNT);
    CLI_AddPara(pT, 4, CLI_STRING, EQU_CmdCheck_IPAddr, HELP_NET_PING_IP);
    CLI_AddPara(pT, 5, CLI_INTEGER, EQU_CmdCheck_NetPort, HELP_COMM_PORT_NUM);
    CLI_AddKey(pT, 6, "copper", HELP_NET_PORT_TYPE);
    CLI_AddKey(pT, 7, "fiber", HELP_NET_PORT_TYPE);
    CLI_InstallCmd(pT, 7, "$1 $2 $3 $4", EQU_CmdProc_Ping);     // ping -c 4 192.168.1.1
    CLI_InstallCmd(pT, 7, "$1 $2 $3 $4 $5", EQU_CmdProc_Ping);  // ping -c 4 192.168.1.1 5
    // ping -c 4 192.168.1.1 5 copper
    CLI_InstallCmd(pT, 7, "$1 $2 $3 $4 $5 $6", EQU_CmdProc_Ping_Copper);
    // ping -c 4 192.168.1.1 1 fiber
    CLI_InstallCmd(pT, 7, "$1 $2 $3 $4 $5 $7", EQU_CmdProc_Ping_Fiber);
    CLI_FreeCmdTemplet(pT, 7);
}

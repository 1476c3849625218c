// Speed and duplex mode of the copper ports.
//
// Commands:
//   set ethernet PORT status speed 10|100|1000|auto duplex half|full|auto
//   get ethernet PORT status
// Mode code = speed index (auto 0, 10 1, 100 2, 1000 3) x 3 + duplex index
// (auto 0, full 1, half 2). The status is the number of ports in error.
// Pass: the driver took (or reported) the mode of every port asked for;
// "get ethernet all status" reads port 0 alone, and its pass is port 0's.
// Fail: a request failed, a mode word is unknown, or 1000 half was asked.
//
// Values:
//   <port num>      0~19 or all (the board's copper ports; "get" reads
//                   port 0 alone for all)
//   <speed value>   10, 100, 1000 or auto
//   <duplex value>  half, full or auto
//
// Touches: DRV_PerpCtl 0x1600 with {1, group, mode, 2} to set and 0x1601
// with {0, group, -, 2} to read (mode in byte 2); group 1 for ports 0-2, 2
// for ports 3 and above: the record never names the port itself.
//
// Kept on purpose:
// - 1000 half (mode 11) is refused before anything is sent.
// - "get ethernet all status" reads port 0 only.
// - A read mode above 11 prints the error once per failed conversion and is
//   shown as auto/auto.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "drv_api.h"
#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"
#include "equ_net.h"

namespace {

constexpr uint32_t kModeRefused = 11;  // 1000 Mbit/s half duplex
constexpr char kSpeedNames[4][10] = {"auto", "10", "100", "1000"};
constexpr char kDuplexNames[3][10] = {"auto", "full", "half"};

struct ModeReq {
    uint8_t ucSet;
    uint8_t ucGroup;
    uint8_t ucMode;
    uint8_t ucFlag;
};
static_assert(sizeof(ModeReq) == 4);

uint8_t port_group(uint32_t u32Port)
{
    return u32Port <= 2 ? 1 : 2;
}

const char *port_prefix(uint32_t u32Port)
{
    return u32Port < gpstEquBoardDesc->ucGeCopperNum ? "GE" : "FE";
}

uint32_t EQU_GetEthSpeedFromEthMode(uint32_t u32Mode, uint32_t *pu32Speed)
{
    if (u32Mode > kModeRefused) {
        return EQU_FAIL;
    }
    *pu32Speed = u32Mode / 3;
    return EQU_OK;
}

uint32_t EQU_GetEthDuplexModeFromEthMode(uint32_t u32Mode, uint32_t *pu32Duplex)
{
    if (u32Mode > kModeRefused) {
        return EQU_FAIL;
    }
    *pu32Duplex = u32Mode % 3;
    return EQU_OK;
}

void print_mode(uint32_t u32Port, uint32_t u32Speed, uint32_t u32Duplex)
{
    printf("\r\n%s%d mode speed: %s\nduplex: %s", port_prefix(u32Port), static_cast<int>(u32Port),
           kSpeedNames[u32Speed], kDuplexNames[u32Duplex]);
}

uint64_t EQU_CmdCheck_NetSpeed(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    bool bOk = strcmp(pcToken, "10") == 0 || strcmp(pcToken, "100") == 0 ||
               strcmp(pcToken, "1000") == 0 || strcmp(pcToken, "auto") == 0;
    return bOk ? EQU_OK : EQU_FAIL;
}

uint64_t EQU_CmdCheck_NetDuplex(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    bool bOk = strcmp(pcToken, "half") == 0 || strcmp(pcToken, "full") == 0 ||
               strcmp(pcToken, "auto") == 0;
    return bOk ? EQU_OK : EQU_FAIL;
}

// ---- handlers ----

uint64_t EQU_CmdProc_SetNetMode(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {0};
    char acSpeed[CLI_MAX_TOKEN_LEN] = {0};
    char acDuplex[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    CLI_GetOctStringPara(pstCmdPara, 1, acSpeed);
    CLI_GetOctStringPara(pstCmdPara, 2, acDuplex);
    bool bAll = strcmp(acPort, "all") == 0;
    uint32_t u32First = bAll ? 0 : static_cast<uint32_t>(atoi(acPort));
    uint32_t u32End =
        bAll ? gpstEquBoardDesc->ucGeCopperNum + gpstEquBoardDesc->ucFeCopperNum : u32First + 1;
    uint32_t u32Speed = 0;
    if (CLI_IsdigitString(acSpeed)) {
        int iSpeed = atoi(acSpeed);
        u32Speed = iSpeed == 10 ? 1 : iSpeed == 100 ? 2 : iSpeed == 1000 ? 3 : 0;
        if (u32Speed == 0) {
            printf("\r\ninvalid speed value %s", acSpeed);
        }
    }
    uint32_t u32Duplex = 0;
    if (strcmp(acDuplex, "full") == 0 || strcmp(acDuplex, "half") == 0) {
        u32Duplex = acDuplex[0] == 'f' ? 1 : 2;
    } else if (strcmp(acDuplex, "auto") != 0) {
        printf("\r\ninvalid duplexmode value %s", acDuplex);
        return EQU_FAIL;
    }
    uint32_t u32Mode = u32Speed * 3 + u32Duplex;
    if (u32Mode == kModeRefused) {
        printf("\r\nError:%s%d set Mode error", port_prefix(u32First), static_cast<int>(u32First));
        return EQU_FAIL;
    }
    uint64_t ulErrors = 0;
    for (uint32_t p = u32First; p < u32End; p++) {
        ModeReq stReq{1, port_group(p), static_cast<uint8_t>(u32Mode), 2};
        if (DRV_PerpCtl(DRV_PERP_SET_PORT_MODE, &stReq) != 0) {
            printf("\r\nError:%s%d set Mode error", port_prefix(p), static_cast<int>(p));
            ulErrors++;
        }
        print_mode(p, u32Speed, u32Duplex);
    }
    return ulErrors;
}

uint64_t EQU_CmdProc_GetNetMode(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    uint32_t u32Port = CLI_IsdigitString(acPort) ? static_cast<uint32_t>(atoi(acPort)) : 0;
    uint8_t aucBuf[24] = {0};
    ModeReq stReq{0, port_group(u32Port), 0, 2};
    memcpy(aucBuf, &stReq, sizeof stReq);
    int iPort = static_cast<int>(u32Port);
    if (DRV_PerpCtl(DRV_PERP_GET_PORT_MODE, aucBuf) != 0) {
        printf("\r\nError:%s%d get Mode error", port_prefix(u32Port), iPort);
        return 1;
    }
    uint64_t ulErrors = 0;
    uint32_t u32Speed = 0;
    uint32_t u32Duplex = 0;
    if (EQU_GetEthSpeedFromEthMode(aucBuf[2], &u32Speed) != EQU_OK) {
        printf("\r\nError:%s%d get Mode error", port_prefix(u32Port), iPort);
        ulErrors++;
    }
    if (EQU_GetEthDuplexModeFromEthMode(aucBuf[2], &u32Duplex) != EQU_OK) {
        printf("\r\nError:%s%d get Mode error", port_prefix(u32Port), iPort);
        ulErrors++;
    }
    print_mode(u32Port, u32Speed, u32Duplex);
    return ulErrors;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_NetMode(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "set", HELP_COMM_SET);
    CLI_AddKey(pT, 2, "get", HELP_COMM_GET);
    CLI_AddKey(pT, 3, "ethernet", HELP_NET_ETHERNET);
    CLI_AddPara(pT, 4, CLI_STRING, EQU_CmdCheck_NetPort, HELP_COMM_PORT_NUM);
    CLI_AddKey(pT, 5, "status", HELP_NET_STATUS);
    CLI_AddKey(pT, 6, "speed", HELP_NET_SPEED);
    CLI_AddPara(pT, 7, CLI_STRING, EQU_CmdCheck_NetSpeed, HELP_NET_SPEED_VALUE);
    CLI_AddKey(pT, 8, "duplex", HELP_NET_DUPLEX);
    CLI_AddPara(pT, 9, CLI_STRING, EQU_CmdCheck_NetDuplex, HELP_NET_DUPLEX_VALUE);
    CLI_InstallCmd(pT, 9, "$2 $3 $4 $5", EQU_CmdProc_GetNetMode);  // get ethernet 0 status
    // set ethernet all status speed 100 duplex full
    CLI_InstallCmd(pT, 9, "$1 $3 $4 $5 $6 $7 $8 $9", EQU_CmdProc_SetNetMode);
    CLI_FreeCmdTemplet(pT, 9);
}

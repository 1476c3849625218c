// MAC addresses of the Ethernet interfaces.
//
// Commands:
//   test ethernet setmac xx:xx:xx:xx:xx:xx   eth0 gets the address, each
//                                            further interface the next one
//   test ethernet getmac                     every interface's address
// Pass: every interface took (or reported) its address. Fail: a socket,
// request, shell or nvram failure; the command stops at that interface.
//
// Values:
//   <macaddr>  xx:xx:xx:xx:xx:xx in hex, neither all zeros nor all ones
//
// Touches: SIOCSIFHWADDR on a socket(AF_UNIX, SOCK_STREAM) for eth0..eth<n-1>
// (n = ucEthNum); nvram keys "ethaddr" (eth0) and "eth<i>addr"; the shell's
// "ifconfig eth<i>" (old format: "HWaddr " on the first line).
//
// Kept on purpose:
// - eth0's address is stored as typed; the next ones are stored in lower case
//   and printed in upper case. The address carries across bytes (the
//   all-ones address wraps to zero).
// - An interface that refuses the address stops the command without undoing
//   the interfaces already set.
// - The check takes multicast addresses; only all-zero and broadcast fail.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"
#include "equ_net.h"

namespace {

constexpr size_t kMacTextLen = 18;  // 17 characters and the terminator

// Six groups read with strtol base 16, one separator skipped after each.
void parse_mac(const char *pcMac, uint8_t (&aucMac)[6])
{
    const char *p = pcMac;
    for (uint8_t &ucByte : aucMac) {
        char *pcEnd = nullptr;
        ucByte = static_cast<uint8_t>(strtol(p, &pcEnd, 16) & 0xFF);
        p = *pcEnd != '\0' ? pcEnd + 1 : pcEnd;
    }
}

// The next address, as a 48-bit big-endian number.
void next_mac(uint8_t (&aucMac)[6])
{
    for (int i = 5; i >= 0 && ++aucMac[i] == 0; i--) {
    }
}

bool is_hex(char c)
{
    return isxdigit(static_cast<unsigned char>(c)) != 0;
}

uint64_t EQU_CmdCheck_MacAddr(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    uint32_t u32Groups = 0;
    for (const char *p = pcToken; *p != '\0'; p += 3) {
        if (!is_hex(p[0]) || !is_hex(p[1]) || (p[2] != ':' && p[2] != '\0')) {
            return EQU_FAIL;
        }
        u32Groups++;
        if (p[2] == '\0') {
            break;
        }
    }
    if (u32Groups != 6) {
        return EQU_FAIL;
    }
    uint32_t u32Low = 0;
    uint16_t u16High = 0;
    EQU_MacStrToMacAddr(pcToken, &u32Low, &u16High);
    if ((u32Low == 0 && u16High == 0) || (u32Low == 0xFFFFFFFFu && u16High == 0xFFFF)) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_SetMacAddr(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPara[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPara);
    char acMac[kMacTextLen + 1] = {0};
    snprintf(acMac, sizeof acMac, "%.18s", acPara);
    uint8_t aucMac[6];
    parse_mac(acMac, aucMac);
    for (uint8_t i = 0; i < gpstEquBoardDesc->ucEthNum; i++) {
        if (EQU_SetEthMac(i, acMac) != EQU_OK) {
            return EQU_FAIL;
        }
        for (char &c : acMac) {
            c = (c >= 'a' && c <= 'f') ? static_cast<char>(c - 'a' + 'A') : c;
        }
        printf("\r\nmacaddress%d Set is:%s", i, acMac);
        next_mac(aucMac);
        snprintf(acMac, sizeof acMac, "%02x:%02x:%02x:%02x:%02x:%02x", aucMac[0], aucMac[1],
                 aucMac[2], aucMac[3], aucMac[4], aucMac[5]);
    }
    return EQU_OK;
}

uint64_t EQU_CmdProc_GetMacAddr(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    for (uint8_t i = 0; i < gpstEquBoardDesc->ucEthNum; i++) {
        char acMac[kMacTextLen] = {0};
        if (EQU_GetEthMac(i, acMac) != EQU_OK) {
            return EQU_FAIL;
        }
        printf("\r\nmacaddress%d is:%s", i, acMac);
    }
    return EQU_OK;
}

}  // namespace

uint32_t EQU_MacStrToMacAddr(const char *pcMac, uint32_t *pu32Low, uint16_t *pu16High)
{
    const char *p = pcMac;
    uint8_t aucMac[6] = {0};
    for (uint8_t &ucByte : aucMac) {
        ucByte = static_cast<uint8_t>(CLI_Skip_AtoHex(&p));
        p += *p != '\0' ? 1 : 0;
    }
    *pu32Low =
        aucMac[0] | (aucMac[1] << 8) | (aucMac[2] << 16) | (static_cast<uint32_t>(aucMac[3]) << 24);
    *pu16High = static_cast<uint16_t>(aucMac[4] | (aucMac[5] << 8));
    return EQU_OK;
}

uint32_t EQU_SetEthMac(uint8_t u8Eth, const char *pcMac)
{
    EQU_Node sock(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!sock) {
        printf("\r\nopen socket failed!");
        return EQU_FAIL;
    }
    ifreq stReq{};
    snprintf(stReq.ifr_name, sizeof stReq.ifr_name, "eth%d", u8Eth);
    stReq.ifr_hwaddr.sa_family = 1;  // Ethernet
    uint8_t aucMac[6];
    parse_mac(pcMac, aucMac);
    memcpy(stReq.ifr_hwaddr.sa_data, aucMac, sizeof aucMac);
    if (sock.request(SIOCSIFHWADDR, &stReq) != 0) {
        printf("\r\neth%d ioctl failed", u8Eth);
        return EQU_FAIL;
    }
    EQU_ENV_S stEnv{};
    if (u8Eth == 0) {
        snprintf(stEnv.szName, sizeof stEnv.szName, "ethaddr");
    } else {
        snprintf(stEnv.szName, sizeof stEnv.szName, "eth%daddr", u8Eth);
    }
    snprintf(stEnv.szValue, sizeof stEnv.szValue, "%s", pcMac);
    return EQU_SetEnvToFlash(&stEnv) != EQU_OK ? EQU_FAIL : EQU_OK;
}

uint32_t EQU_GetEthMac(uint8_t u8Eth, char *pcMac)
{
    char acCmd[32];
    snprintf(acCmd, sizeof acCmd, "ifconfig eth%d", u8Eth);
    FILE *fp = popen(acCmd, "r");
    if (fp == nullptr) {
        printf("\r\npopen error!");
        return EQU_FAIL;
    }
    char acLine[128] = {0};
    uint32_t u32Ret = EQU_FAIL;
    if (fgets(acLine, sizeof acLine, fp) == nullptr) {
        printf("\r\nfgets error!");
    } else if (const char *pcAddr = strstr(acLine, "HWaddr ")) {
        snprintf(pcMac, kMacTextLen, "%s", pcAddr + strlen("HWaddr "));
        u32Ret = EQU_OK;
    } else {
        printf("\r\nstrstr error!");
    }
    pclose(fp);
    return u32Ret;
}

// ---- registration ----

void EQU_Cmd_MacAddr(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "ethernet", HELP_NET_ETHERNET);
    CLI_AddKey(pT, 3, "setmac", HELP_NET_SETMAC);
    CLI_AddKey(pT, 4, "getmac", HELP_NET_GETMAC);
    CLI_AddPara(pT, 5, CLI_STRING, EQU_CmdCheck_MacAddr, HELP_NET_MACADDR);
    // test ethernet setmac 00:11:22:33:44:55
    CLI_InstallCmd(pT, 5, "$1 $2 $3 $5", EQU_CmdProc_SetMacAddr);
    CLI_InstallCmd(pT, 5, "$1 $2 $4", EQU_CmdProc_GetMacAddr);  // test ethernet getmac
    CLI_FreeCmdTemplet(pT, 5);
}

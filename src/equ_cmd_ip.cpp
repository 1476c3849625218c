// Addresses: the TFTP server's, and the board's own on its Ethernet ports.
//
// Commands:
//   set serverip IP            kept in acEquServerip (memory only) for transfers
//   get serverip               fails while it is unset (6 characters or less)
//   set deviceip IP [PORT]     ifconfig eth<n> IP
//   get deviceip [PORT]        the address from ifconfig's second line
// PORT 0 is eth1 and any other value eth0 ("set" takes it modulo 256, "get"
// whole; a negative PORT reads as 0); without a port "set" uses eth1 and
// "get" walks every interface. Reports print eth0 as
// port 1 and every other interface as port 0.
// Pass: the address was stored, or set or read by ifconfig. Fail: "get
// serverip" while none is set; the shell could not be started.
//
// Needs: "get serverip" fails until "set serverip"; the tool forgets the
// address when it quits.
//
// Values:
//   <IPv4-address>  a dotted address of four segments, 7 to 15 characters
//   <port num>      any number: 0 is eth1, any other eth0; "set" takes it
//                   modulo 256 (256 is eth1), "get" whole (256 is eth0); a
//                   negative number reads as 0 (-1 is eth1)
//
// Touches: the shell (ifconfig, rm), /tmp/ifconfig_value.
//
// Kept on purpose:
// - The address check is loose where operators rely on it: empty middle
//   segments, leading zeros and network or broadcast forms pass.
// - Only a shell that cannot start fails the device commands; ifconfig's own
//   errors show in its output alone.
// - "get deviceip" expects the old ifconfig format ("inet addr:A.B.C.D"): the
//   address is whatever follows the first colon of the second line.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"
#include "equ_net.h"

namespace {

constexpr const char *kIfconfigFile = "/tmp/ifconfig_value";

// atoi of a segment, saturated instead of overflowing.
int32_t segment_value(const char *pcSeg)
{
    int64_t lVal = 0;
    for (; *pcSeg >= '0' && *pcSeg <= '9'; pcSeg++) {
        lVal = lVal * 10 + (*pcSeg - '0');
        if (lVal > INT_MAX) {
            return INT_MAX;
        }
    }
    return static_cast<int32_t>(lVal);
}

// Range check of the segment that a dot (or the end) closes; 0 or 200.
uint32_t check_segment(uint32_t u32Dots, const char *pcSeg, bool bLast)
{
    int32_t lVal = segment_value(pcSeg);
    if (bLast) {
        if (u32Dots == 3 && (lVal < 1 || lVal > 254)) {
            printf("\r\nip address's fourth segment must be 1~254!");
            return EQU_FAIL;
        }
        return EQU_OK;
    }
    if (u32Dots == 1 && (lVal < 1 || lVal > 223)) {
        printf("\r\nip address's first segment must be 1~223!");
        return EQU_FAIL;
    }
    if ((u32Dots == 2 || u32Dots == 3) && lVal > 255) {
        printf(u32Dots == 2 ? "\r\nip address's second segment must be 0~255!"
                            : "\r\nip address's third segment must be 0~255!");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// eth1 for port 0 (and for no port), eth0 for any other port.
uint32_t port_to_eth(uint64_t ulPort)
{
    return static_cast<uint8_t>(ulPort) == 0 ? 1 : 0;
}

uint32_t eth_to_port(uint32_t u32Eth)
{
    return u32Eth == 0 ? 1 : 0;
}

// The address part of ifconfig's output for eth<u32Eth>; 0 or 200.
uint32_t read_device_ip(uint32_t u32Eth, char (&acIp)[16])
{
    char acCmd[100];
    snprintf(acCmd, sizeof acCmd, "ifconfig eth%u > %s", u32Eth, kIfconfigFile);
    if (system(acCmd) < 0) {
        printf("\r\nget device ipaddress error");
        return EQU_FAIL;
    }
    char acBuf[500] = {0};
    if (FILE *fp = fopen(kIfconfigFile, "r")) {
        // The second line overwrites the first: it holds "inet addr:".
        for (int i = 0; i < 2 && fgets(acBuf, sizeof acBuf, fp) != nullptr; i++) {
        }
        fclose(fp);
    }
    if (const char *pcColon = static_cast<const char *>(memchr(acBuf, ':', strlen(acBuf)))) {
        size_t n = 0;
        for (const char *p = pcColon + 1; *p != '\0' && *p != ' ' && n < 15; p++) {
            acIp[n++] = *p;
        }
        acIp[n] = '\0';
    }
    (void)!system("rm /tmp/ifconfig_value");
    return EQU_OK;
}

}  // namespace

uint64_t EQU_CmdCheck_IPAddr(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    size_t L = strlen(pcToken);
    if (L < 7 || L > 15) {
        printf("\r\nip address's length must be 7~15 bits!");
        return EQU_FAIL;
    }
    if (pcToken[0] == '.' || pcToken[L - 1] == '.') {
        printf("\r\nip address's first and last bits can't be .!");
        return EQU_FAIL;
    }
    uint32_t u32Dots = 0;
    char acSeg[16] = {0};
    size_t n = 0;
    for (size_t i = 0; i < L; i++) {
        char c = pcToken[i];
        if (c == '.') {
            u32Dots++;
            if (check_segment(u32Dots, acSeg, false) != EQU_OK) {
                return EQU_FAIL;
            }
            memset(acSeg, 0, sizeof acSeg);
            n = 0;
            continue;
        }
        if (c < '0' || c > '9') {
            printf("\r\nip address's character must be 0~9\n ! ");
            return EQU_FAIL;
        }
        acSeg[n++] = c;
        if (i == L - 1 && check_segment(u32Dots, acSeg, true) != EQU_OK) {
            return EQU_FAIL;
        }
    }
    if (u32Dots != 3) {
        printf("\r\na valid ip address must be four segments!");
        return EQU_FAIL;
    }
    return EQU_OK;
}

namespace {

// ---- handlers ----

uint64_t EQU_CmdProc_SetServerIP(CLI_CMD_PARA_S *pstCmdPara)
{
    char acIp[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acIp);
    snprintf(acEquServerip, sizeof acEquServerip, "%.15s", acIp);
    printf("\r\nserverip set is:%s", acEquServerip);
    return EQU_OK;
}

uint64_t EQU_CmdProc_GetServerIP(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strnlen(acEquServerip, sizeof acEquServerip) > 6) {
        printf("\r\nserverip is %s", acEquServerip);
        return EQU_OK;
    }
    printf("\r\nyou have not set the serverip");
    return EQU_FAIL;
}

uint64_t EQU_CmdProc_SetDeviceIP(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulNum = 0;
    uint64_t ulPort = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    char acIp[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acIp);
    if (ulNum > 1) {
        CLI_GetUlongValuePara(pstCmdPara, 1, &ulPort);
    }
    uint32_t u32Eth = port_to_eth(ulPort);
    if (u32Eth >= gpstEquBoardDesc->ucEthNum) {
        printf("\r\nNo such device eth%u", u32Eth);
        return EQU_FAIL;
    }
    char acCmd[100];
    snprintf(acCmd, sizeof acCmd, "ifconfig eth%u %.80s", u32Eth, acIp);
    if (system(acCmd) < 0) {
        printf("\r\nset device ipaddress error");
        return EQU_FAIL;
    }
    printf("\r\ndeviceip port %u set is:%s", eth_to_port(u32Eth), acIp);
    return EQU_OK;
}

uint64_t EQU_CmdProc_GetDeviceIP(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    uint32_t u32First = 0;
    uint32_t u32Last = gpstEquBoardDesc->ucEthNum - 1u;
    if (ulNum > 0) {
        uint64_t ulPort = 0;
        CLI_GetUlongValuePara(pstCmdPara, 0, &ulPort);
        // Unlike setting, the whole number counts: 256 is eth0, not eth1.
        u32First = u32Last = ulPort == 0 ? 1 : 0;
    }
    if (u32Last >= gpstEquBoardDesc->ucEthNum) {
        printf("\r\nNo such device eth%d", static_cast<int>(u32Last));
        return EQU_FAIL;
    }
    for (uint32_t u32Eth = u32First; u32Eth <= u32Last; u32Eth++) {
        char acIp[16] = {0};
        if (read_device_ip(u32Eth, acIp) != EQU_OK) {
            return EQU_FAIL;
        }
        printf("\r\ndeviceip port %u is %s", eth_to_port(u32Eth), acIp);
    }
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_IP(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "set", HELP_COMM_SET);
    CLI_AddKey(pT, 2, "get", HELP_COMM_GET);
    CLI_AddKey(pT, 3, "serverip", HELP_IP_SERVERIP);
    CLI_AddKey(pT, 4, "deviceip", HELP_IP_DEVICEIP);
    CLI_AddPara(pT, 5, CLI_STRING, EQU_CmdCheck_IPAddr, HELP_IP_ADDR);
    CLI_AddPara(pT, 6, CLI_INTEGER, nullptr, HELP_COMM_PORT_NUM);
    CLI_InstallCmd(pT, 6, "$1 $3 $5", EQU_CmdProc_SetServerIP);     // set serverip 192.168.1.1
    CLI_InstallCmd(pT, 6, "$2 $3", EQU_CmdProc_GetServerIP);        // get serverip
    CLI_InstallCmd(pT, 6, "$1 $4 $5", EQU_CmdProc_SetDeviceIP);     // set deviceip 192.168.2.10
    CLI_InstallCmd(pT, 6, "$1 $4 $5 $6", EQU_CmdProc_SetDeviceIP);  // set deviceip 192.168.2.10 0
    CLI_InstallCmd(pT, 6, "$2 $4", EQU_CmdProc_GetDeviceIP);        // get deviceip
    CLI_InstallCmd(pT, 6, "$2 $4 $6", EQU_CmdProc_GetDeviceIP);     // get deviceip 1
    CLI_FreeCmdTemplet(pT, 6);
}

// Ethernet loopback tests.
//
// Command:
//   test ethernet PORT loopback ext fiber SPEED LENGTH COUNT CONTENT
// reports each selected SFP port ok; it sends nothing (a port beyond the
// fiber count is reported, then passed as well).
// Pass: always. Fail: never.
//
// Values:
//   <speed value>  10, 100 or 1000
//   <pkt_len>      64~1500, bytes
//   <pkt_num>      1~255
//   <pkt_type>     0~258: 0..254 that byte, 255 0xFF, 256 rising, 257 falling, 258 random
//
// Built for harnesses, reached by no rule:
// - EQU_EthLoopBackTest: COUNT frames of 1504 bytes (an ARP request to
//   10.64.57.10 carrying LENGTH payload bytes, at most 1462) sent on a raw
//   link-level socket (SOCK_PACKET); each must come back within 5 s with
//   the same payload. Frames to another target address count unchecked.
// - EQU_CmdProc_IntLoopCopper: the Ethernet driver's internal PHY loopback
//   per copper port, through SIOCDEVPRIVATE on eth<port>.
// - EQU_SetEthModeParams: DRV_PerpCtl 0x1600 with {0, min(port, 2), 7 or 9}.
// CONTENT: as <pkt_type> above.
//
// Kept on purpose:
// - The frame's sender protocol address holds the first four characters of
//   the dotted address text, not its bytes.
// - The mode setter ignores the speed: ports 0 and 1 get 7, others 9.
// - The template keeps its nineteen elements (switch registers, int-phy,
//   copper) though only the fiber rule is installed.
#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "drv_api.h"
#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"
#include "equ_net.h"

namespace {

constexpr size_t kFrameLen = 1504;
constexpr size_t kPayloadOff = 42;
constexpr uint32_t kPayloadMax = kFrameLen - kPayloadOff;  // 1462
constexpr size_t kTargetIpOff = 38;
constexpr uint8_t kTargetIp[4] = {10, 64, 57, 10};
constexpr int kWaitSecs = 5;

// The request block the Ethernet driver reads behind ifr_data.
struct LoopReq {
    uint32_t u32PortType;
    uint32_t u32Port;
    uint32_t u32Speed;
    uint32_t u32LoopMode;
    uint32_t u32PktLen;
    uint32_t u32PktNum;
    uint32_t u32PktContent;
};
static_assert(sizeof(LoopReq) == 28);

struct LoopModeReq {
    uint8_t ucZero;
    uint8_t ucPort;
    uint8_t ucMode;
};
static_assert(sizeof(LoopModeReq) == 3);

const char *port_prefix(uint64_t ulPort)
{
    return ulPort < gpstEquBoardDesc->ucGeCopperNum ? "GE" : "FE";
}

void fill_payload(uint8_t *pucPay, uint32_t L, uint32_t c)
{
    for (uint32_t i = 0; i < L; i++) {
        if (c == 256) {
            pucPay[i] = static_cast<uint8_t>(i % 255);
        } else if (c == 257) {
            pucPay[i] = static_cast<uint8_t>((L - i - 1) % 255);
        } else if (c == 258) {
            pucPay[i] = static_cast<uint8_t>(rand() % 127);
        } else {
            pucPay[i] = static_cast<uint8_t>(c);  // 255 included
        }
    }
}

void put_be16(uint8_t *p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

void build_header(uint8_t *pucFrame, const uint8_t (&aucMac)[6], uint32_t u32Ip)
{
    memset(pucFrame, 0xFF, 6);
    memcpy(pucFrame + 6, aucMac, 6);
    put_be16(pucFrame + 12, 0x0806);
    put_be16(pucFrame + 14, 1);
    put_be16(pucFrame + 16, 0x0800);
    pucFrame[18] = 6;
    pucFrame[19] = 4;
    put_be16(pucFrame + 20, 1);
    memcpy(pucFrame + 22, aucMac, 6);
    in_addr stAddr{u32Ip};
    char acText[INET_ADDRSTRLEN] = {0};
    inet_ntop(AF_INET, &stAddr, acText, sizeof acText);
    memcpy(pucFrame + 28, acText, 4);
    memcpy(pucFrame + kTargetIpOff, kTargetIp, sizeof kTargetIp);
}

uint32_t EQU_GetEthInfor(const char *pcEthName, uint8_t (&aucMac)[6], uint32_t *pu32Ip)
{
    ifreq stReq{};
    static_assert(sizeof stReq == 40);
    memcpy(&stReq, pcEthName, strnlen(pcEthName, sizeof stReq - 1));
    EQU_Node sock(socket(AF_INET, SOCK_DGRAM, 0));
    if (!sock) {
        printf("\r\nsocket failed!");
        return EQU_FAIL;
    }
    if (sock.request(SIOCGIFHWADDR, &stReq) < 0) {
        printf("\r\nioctl--get hardware addr failed!");
        return EQU_FAIL;
    }
    // A bounded string copy: the bytes after a zero byte come out as zero.
    bool bEnd = false;
    for (size_t i = 0; i < 6; i++) {
        bEnd = bEnd || stReq.ifr_hwaddr.sa_data[i] == 0;
        aucMac[i] = bEnd ? 0 : static_cast<uint8_t>(stReq.ifr_hwaddr.sa_data[i]);
    }
    if (sock.request(SIOCGIFADDR, &stReq) < 0) {
        printf("\r\nioctl--get hardware addr failed!");
        return EQU_FAIL;
    }
    sockaddr_in stIn{};
    memcpy(&stIn, &stReq.ifr_addr, sizeof stIn);
    *pu32Ip = stIn.sin_addr.s_addr;
    return EQU_OK;
}

// One frame out and back; 0 or 200 (printed).
uint32_t exchange_frame(int fd, fd_set *pstSet, const sockaddr &stAddr, const uint8_t *pucTx,
                        uint8_t *pucRx, uint32_t L)
{
    ssize_t lSent = sendto(fd, pucTx, kFrameLen, 0, &stAddr, sizeof stAddr);
    if (lSent < 0) {
        printf("\r\nsendto failed, iNum: %d, strerr: %s", static_cast<int>(lSent),
               strerror(static_cast<int>(lSent)));
        return EQU_FAIL;
    }
    timeval stTv{kWaitSecs, 0};
    if (select(fd + 1, pstSet, nullptr, nullptr, &stTv) == 0) {
        printf("\r\nover time");
        return EQU_FAIL;
    }
    if (recvfrom(fd, pucRx, kFrameLen, 0, nullptr, nullptr) < 0) {
        printf("\r\nrcvfrom failed!");
        return EQU_FAIL;
    }
    if (memcmp(pucRx + kTargetIpOff, pucTx + kTargetIpOff, sizeof kTargetIp) != 0) {
        return EQU_OK;  // not ours: counted all the same
    }
    for (uint32_t i = 0; i < L; i++) {
        if (pucRx[kPayloadOff + i] != pucTx[kPayloadOff + i]) {
            printf("\r\nsend_packet is not equ to recv_packet %d", static_cast<int>(i));
            return EQU_FAIL;
        }
    }
    return EQU_OK;
}

uint32_t EQU_Net_GetEthNum(uint32_t u32PortType, uint32_t u32Port, uint32_t *pu32Eth)
{
    *pu32Eth = u32PortType == 1 ? 3 : u32Port;
    return EQU_OK;
}

uint32_t EQU_NetLoopBackTest(uint32_t u32PortType, uint32_t u32Port, uint32_t u32Speed,
                             uint32_t u32LoopMode, uint32_t u32PktLen, uint32_t u32PktNum,
                             uint32_t u32PktContent)
{
    uint32_t u32Eth = 0;
    if (EQU_Net_GetEthNum(u32PortType, u32Port, &u32Eth) != EQU_OK) {
        printf("\r\nget ethnum failed");
        return EQU_FAIL;
    }
    LoopReq stLoop{u32PortType, u32Port,   u32Speed,     u32LoopMode,
                   u32PktLen,   u32PktNum, u32PktContent};
    ifreq stReq{};
    snprintf(stReq.ifr_name, sizeof stReq.ifr_name, "eth%u", u32Eth);
    stReq.ifr_data = reinterpret_cast<char *>(&stLoop);
    EQU_Node sock(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!sock) {
        printf("\r\nopen socket failed");
        return EQU_FAIL;
    }
    if (sock.request(SIOCDEVPRIVATE, &stReq) != 0) {
        printf("\r\nnet loop failed");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// A number selects that port, "all" ports 0..u32Count-1 (unsigned: no
// ports makes the last one 4294967295), anything else port 0.
void port_range(const char *pcPort, uint32_t u32Count, uint32_t *pu32First, uint32_t *pu32Last)
{
    bool bAll = strcmp(pcPort, "all") == 0;
    *pu32First = CLI_IsdigitString(pcPort) ? static_cast<uint32_t>(atoi(pcPort)) : 0;
    *pu32Last = bAll ? u32Count - 1u : *pu32First;
}

// ---- validators ----

uint64_t EQU_CmdCheck_NetSpeed(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    int64_t lSpeed = 0;
    bool bOk = EQU_InRange(pcToken, 10, 1000, &lSpeed) &&
               (lSpeed == 10 || lSpeed == 100 || lSpeed == 1000);
    return bOk ? EQU_OK : EQU_FAIL;
}

uint64_t EQU_CmdCheck_NetPktLength(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 64, 1500)) {
        printf("\r\nthe uiPktLength you input should between 64 and 1500");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_NetPktNumber(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 1, 255)) {
        printf("\r\nthe uiPktNum you input should between 1 and 255");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_NetPktContent(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 0, 258)) {
        printf("\r\nthe uiPktContent you input should between 0 and 258");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// The content message is reused here on purpose.
uint64_t EQU_CmdCheck_ChipAddr(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 0, 1)) {
        printf("\r\nthe uiPktContent you input should between 0 and 258");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_RegVal(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pcToken;
    (void)pstCmdPara;
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_ExtLoopFiber(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {0};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    uint32_t u32Fibers = gpstEquBoardDesc->ucFiberNum;
    uint32_t u32First = 0;
    uint32_t u32Last = 0;
    port_range(acPort, u32Fibers, &u32First, &u32Last);
    if (u32First >= u32Fibers) {
        printf("\r\nfiber net port number must be 0-%d", static_cast<int>(u32Fibers) - 1);
    }
    // SPEED, LENGTH, COUNT and CONTENT are read by no one: nothing is sent.
    for (uint32_t p = u32First;; p++) {
        printf("\r\nSFP%d ext loopback test ............... %s", static_cast<int>(p), "ok");
        if (p == u32Last) {
            break;
        }
    }
    return EQU_OK;
}

}  // namespace

uint64_t EQU_CmdProc_IntLoopCopper(CLI_CMD_PARA_S *pstCmdPara)
{
    // Typed text of PORT SPEED LENGTH COUNT CONTENT, whatever their slots' kinds.
    const char *apcPara[5];
    for (size_t i = 0; i < 5; i++) {
        apcPara[i] = pstCmdPara->astPara[i].szPara;
    }
    uint32_t u32Copper = gpstEquBoardDesc->ucGeCopperNum + gpstEquBoardDesc->ucFeCopperNum;
    uint32_t u32First = 0;
    uint32_t u32Last = 0;
    port_range(apcPara[0], u32Copper, &u32First, &u32Last);
    int iSpeed = atoi(apcPara[1]);
    uint32_t u32Speed = iSpeed == 10 ? 1 : (iSpeed == 100 || iSpeed == 1000) ? 2 : iSpeed;
    uint64_t ulSum = 0;
    for (uint32_t p = u32First;; p++) {
        uint32_t u32Ret = EQU_NetLoopBackTest(0, p, u32Speed, 1, atoi(apcPara[2]), atoi(apcPara[3]),
                                              atoi(apcPara[4]));
        printf("\r\n%s%d int loopback test ............... %s", port_prefix(p), static_cast<int>(p),
               u32Ret == EQU_OK ? "ok" : "error");
        ulSum += u32Ret;
        if (p == u32Last) {
            break;
        }
    }
    return ulSum;
}

uint32_t EQU_EthLoopBackTest(const char *pcEthName, uint32_t u32PktLen, uint32_t u32PktNum,
                             uint32_t u32PktContent)
{
    uint8_t aucTx[kFrameLen] = {0};
    uint8_t aucRx[kFrameLen] = {0};
    uint32_t L = u32PktLen < kPayloadMax ? u32PktLen : kPayloadMax;
    fill_payload(aucTx + kPayloadOff, L, u32PktContent);
    uint8_t aucMac[6] = {0};
    uint32_t u32Ip = 0;
    if (EQU_GetEthInfor(pcEthName, aucMac, &u32Ip) != EQU_OK) {
        printf("\r\ncan not get eth info");
        return EQU_FAIL;
    }
    build_header(aucTx, aucMac, u32Ip);
    sockaddr stAddr{};
    stAddr.sa_family = AF_PACKET;
    strncpy(stAddr.sa_data, pcEthName, sizeof stAddr.sa_data - 1);
    EQU_Node sock(socket(AF_PACKET, SOCK_PACKET, htons(3)));
    if (!sock) {
        printf("\r\nsocket SOCK_PACKET failed!");
        return EQU_FAIL;
    }
    if (bind(sock.fd(), &stAddr, sizeof stAddr) != 0) {
        printf("\r\nbind err");
        return EQU_FAIL;
    }
    // A descriptor past what an fd_set holds cannot be waited on: no frame
    // can come back in time.
    if (sock.fd() >= FD_SETSIZE) {
        printf("\r\nover time");
        return EQU_FAIL;
    }
    fd_set stSet;
    FD_ZERO(&stSet);
    FD_SET(sock.fd(), &stSet);
    for (uint32_t n = 0; n < u32PktNum; n++) {
        if (exchange_frame(sock.fd(), &stSet, stAddr, aucTx, aucRx, L) != EQU_OK) {
            return EQU_FAIL;
        }
    }
    return EQU_OK;
}

uint32_t EQU_SetEthModeParams(int64_t lPort, int64_t lSpeed)
{
    (void)lSpeed;  // every speed gives the same record
    LoopModeReq stReq{0, static_cast<uint8_t>(lPort > 2 ? 2 : lPort),
                      static_cast<uint8_t>(lPort == 0 || lPort == 1 ? 7 : 9)};
    if (DRV_PerpCtl(DRV_PERP_SET_PORT_MODE, &stReq) != 0) {
        printf("\r\nError:%s%ld set Mode error", port_prefix(static_cast<uint64_t>(lPort)),
               static_cast<long>(lPort));
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- registration ----

void EQU_Cmd_NetLoopback(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "ethernet", HELP_NET_ETHERNET);
    CLI_AddPara(pT, 3, CLI_STRING, EQU_CmdCheck_NetPort, HELP_COMM_PORT_NUM);
    CLI_AddKey(pT, 4, "loopback", HELP_NET_LINK);  // the "link" row, as it always was
    CLI_AddKey(pT, 5, "int-phy", HELP_NET_INT_PHY);
    CLI_AddKey(pT, 6, "ext", HELP_NET_EXT);
    CLI_AddKey(pT, 7, "copper", HELP_NET_COPPER);
    CLI_AddKey(pT, 8, "fiber", HELP_NET_FIBER);
    CLI_AddPara(pT, 9, CLI_INTEGER, EQU_CmdCheck_NetSpeed, HELP_NET_SPEED_VALUE);
    CLI_AddPara(pT, 10, CLI_INTEGER, EQU_CmdCheck_NetPktLength, HELP_NET_PKT_LEN);
    CLI_AddPara(pT, 11, CLI_INTEGER, EQU_CmdCheck_NetPktNumber, HELP_NET_PKT_NUM);
    CLI_AddPara(pT, 12, CLI_INTEGER, EQU_CmdCheck_NetPktContent, HELP_NET_PKT_TYPE);
    CLI_AddKey(pT, 13, "get", HELP_COMM_GET);
    CLI_AddKey(pT, 14, "set", HELP_COMM_SET);
    CLI_AddKey(pT, 15, "switchreg", HELP_NET_SWITCHREG);
    CLI_AddPara(pT, 16, CLI_STRING, EQU_CmdCheck_RegVal, HELP_NET_REG_ADDR);
    CLI_AddPara(pT, 17, CLI_STRING, EQU_CmdCheck_RegVal, HELP_NET_REG_VALUE);
    CLI_AddPara(pT, 18, CLI_INTEGER, EQU_CmdCheck_ChipAddr, HELP_NET_CHIP_ADDR);
    CLI_AddPara(pT, 19, CLI_INTEGER, EQU_CmdCheck_RegVal, HELP_COMM_PORT_NUM);
    // test ethernet all loopback ext fiber 1000 64 1 0
    CLI_InstallCmd(pT, 19, "$1 $2 $3 $4 $6 $8 $9 $10 $11 $12", EQU_CmdProc_ExtLoopFiber);
    CLI_FreeCmdTemplet(pT, 19);
}

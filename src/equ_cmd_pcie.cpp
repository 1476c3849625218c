// PCIe link status.
//
// Commands:
//   test pcie N status       the link to the first Ethernet controller
//   test pcie all status     the links to the three Ethernet controllers and
//                            the SATA controller, in channel order
// Pass: lspci showed a link-status line for every link asked for. Fail: a
// device is missing (no output) or shows no link status (a link that is
// down reads as all ones, with no capabilities).
//
// Values:
//   <slot>  a number below 4 (-1 too), or all; every number asks for channel 0
//
// Touches: "lspci -vv -s 0000:0N:00.0" (channel N-1) through a pipe; the
// slot-status handler, which no rule installs, reads the link status word
// from /sys/bus/pci/devices/.../config itself.
//
// Kept on purpose:
// - Any number typed queries channel 0: the harness scripts type "0" and the
//   other links are checked with "all".
// - lspci's output is read in 39-character pieces and the width and speed
//   are cut from the piece holding "LnkSta" at its commas. Where no comma
//   follows the width (newer lspci ends the line there) the width is shown
//   from "Width " on, line end included; a value that is not found prints
//   as "(null)". Operators' scripts match these lines as they are.
// - The channel validator (element 4) is built although no rule uses it:
//   the port-or-all validator guards the installed command.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

// One entry of a PCIe slot list: 35 bytes, no gaps.
struct EQU_PCIE_INFO_S {
    char szName[32];
    uint8_t ucBus;
    uint8_t ucDev;
    uint8_t ucFunc;
};
static_assert(sizeof(EQU_PCIE_INFO_S) == 35);

const EQU_PCIE_INFO_S gszPcieInfoList_NVRK5T1B01_SLOT[] = {
    {"9215", 3, 0, 0},  {"8111A", 1, 0, 0},   {"8111B", 2, 0, 0},
    {"8111C", 4, 0, 0}, {"ALC662", 0, 27, 0},
};
const EQU_PCIE_INFO_S *gpstEquPcieInfoDesc = nullptr;

constexpr uint64_t kChannels = 4;
constexpr const char *kPartner[kChannels] = {"RTL8111_A", "RTL8111_B", "RTL8111_C", "88SE9215"};
constexpr size_t kCmdLen = 40;  // also the size of each piece read from lspci
constexpr uint64_t kMaxSlot = 1;

// atoi's reading of a number, saturated instead of overflowing.
int to_int(const char *pcText)
{
    return static_cast<int>(std::clamp<long>(strtol(pcText, nullptr, 10), INT_MIN, INT_MAX));
}

const char *or_null(const char *pcText)
{
    return pcText != nullptr ? pcText : "(null)";
}

// The text after the first blank behind "LnkSta" in the piece holding it, or
// null when the output has no such piece.
char *find_link_status(FILE *pf, char (&acBuf)[kCmdLen])
{
    while (fgets(acBuf, sizeof(acBuf), pf) != nullptr) {
        char *pcSta = strstr(acBuf, "LnkSta");
        char *pcBlank = pcSta != nullptr ? strchr(pcSta + 6, ' ') : nullptr;
        if (pcBlank != nullptr) {
            *pcBlank = '\0';
            return pcBlank + 1;
        }
    }
    return nullptr;
}

uint32_t EQU_PCIe_GetPCIeLinkStatus(uint64_t ulChn)
{
    char acBuf[kCmdLen];
    snprintf(acBuf, sizeof(acBuf), "lspci -vv -s 0000:0%lu:00.0 2> /dev/null",
             static_cast<unsigned long>(ulChn + 1));
    FILE *pf = popen(acBuf, "r");
    if (pf == nullptr) {
        return EQU_FAIL;
    }
    // The first piece is the device's title line.
    if (fgets(acBuf, sizeof(acBuf), pf) == nullptr) {
        pclose(pf);
        printf("\r\nerror: the 0000:0%lu:00.0 channel is NULL",
               static_cast<unsigned long>(ulChn + 1));
        return EQU_FAIL;
    }
    char *pcRest = find_link_status(pf, acBuf);
    if (pcRest == nullptr) {
        printf("\r\nerror: the 0000:0%lu:00.0 channel is ERROR",
               static_cast<unsigned long>(ulChn + 1));
        pclose(pf);
        return EQU_FAIL;
    }
    char *pcSpeed = nullptr;
    char *pcWidth = nullptr;
    if (char *pcComma = strchr(pcRest, ','); pcComma != nullptr) {
        *pcComma = '\0';
        pcSpeed = pcRest;
        pcRest = pcComma + 1;
    }
    if ((pcWidth = strstr(pcRest, "Width ")) != nullptr) {
        if (char *pcComma = strchr(pcWidth + 6, ','); pcComma != nullptr) {
            *pcComma = '\0';
            pcWidth += 6;
        }
    }
    pclose(pf);
    printf("\r\npcie width: %s", or_null(pcWidth));
    printf("\r\npcie speed: %s", or_null(pcSpeed));
    return EQU_OK;
}

// The link status word of one slot-list entry, from its configuration space.
uint32_t slot_status(const EQU_PCIE_INFO_S &stSlot, uint64_t ulSlot)
{
    char acPath[64];
    snprintf(acPath, sizeof(acPath), "/sys/bus/pci/devices/0000:%02x:%02x.%x/config", stSlot.ucBus,
             stSlot.ucDev, stSlot.ucFunc);
    int fd = open(acPath, O_RDONLY);
    if (fd < 0) {
        printf("\r\nfailed to open %s", acPath);
        return EQU_FAIL;
    }
    // A failed or short read leaves zeros: the slot then shows as down.
    uint8_t aucVal[4] = {};
    if (lseek(fd, ulSlot <= 1 ? 80 : 208, SEEK_SET) >= 0) {
        ssize_t lGot = read(fd, aucVal, sizeof(aucVal));
        (void)lGot;
    }
    close(fd);
    uint32_t u32Val =
        aucVal[0] | aucVal[1] << 8 | aucVal[2] << 16 | static_cast<uint32_t>(aucVal[3]) << 24;
    uint32_t u32Width = (u32Val >> 20) & 0x1F;
    double dSpeed = ((u32Val >> 16) & 0xF) * 2.5;
    printf("\r\nPCIE_SWITCH to %s test:%s", stSlot.szName, u32Width != 0 ? "ok" : "error");
    printf("\r\npcie width: x%u", u32Width);
    printf("\r\npcie speed: %3.1f GT/s", dSpeed);
    return EQU_OK;
}

// ---- validators ----

uint64_t EQU_CmdCheck_PortOrAll(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if ((CLI_IsdigitString(pcToken) && to_int(pcToken) < 4) || strcmp(pcToken, "all") == 0) {
        return EQU_OK;
    }
    printf("\r\nnet port number must be 0-%d or all", 3);
    return EQU_FAIL;
}

uint64_t EQU_CmdCheck_Channel(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    uint32_t u32Num = gpstEquBoardDesc->u32PcieChnNum;
    if (CLI_IsdigitString(pcToken)) {
        if (strtoul(pcToken, nullptr, 10) >= u32Num) {
            printf("\r\npcie channel must between 0 ~ %d, please check",
                   static_cast<int>(u32Num) - 1);
            return EQU_FAIL;
        }
    } else if (strcmp(pcToken, "all") != 0) {
        printf("\r\ninvalid channel args, it must be number or all, please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_PcieGetStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    char acPort[CLI_MAX_TOKEN_LEN] = {};
    CLI_GetOctStringPara(pstCmdPara, 0, acPort);
    uint32_t u32Fails = 0;
    if (CLI_IsdigitString(acPort)) {
        (void)to_int(acPort);  // the number typed does not pick the channel
        if (EQU_PCIe_GetPCIeLinkStatus(0) != EQU_OK) {
            printf("\r\ncan't get the pcie status");
            u32Fails++;
        }
    } else if (strcmp(acPort, "all") == 0) {
        for (uint64_t ulChn = 0; ulChn < kChannels; ulChn++) {
            printf("\r\nCPU to %s test:", kPartner[ulChn]);
            if (EQU_PCIe_GetPCIeLinkStatus(ulChn) != EQU_OK) {
                printf("\r\nEQU_PCIe_GetPCIeLinkStatus chipname = %s", kPartner[ulChn]);
                u32Fails++;
            }
        }
    }
    return u32Fails != 0 ? EQU_FAIL : EQU_OK;
}

}  // namespace

uint64_t EQU_CmdProc_PcieGetSlotStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    char acSlot[CLI_MAX_TOKEN_LEN] = {};
    CLI_GetOctStringPara(pstCmdPara, 0, acSlot);
    uint64_t ulSlot = CLI_IsdigitString(acSlot) ? static_cast<uint64_t>(to_int(acSlot)) : 0;
    if (ulSlot > kMaxSlot) {
        printf("\r\nfailed to slot  please  check 0-1");
        return EQU_FAIL;
    }
    gpstEquPcieInfoDesc = gszPcieInfoList_NVRK5T1B01_SLOT;
    if (slot_status(gpstEquPcieInfoDesc[ulSlot], ulSlot) != EQU_OK) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- registration ----

void EQU_Cmd_Pcie(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "pcie", HELP_PCIE);
    CLI_AddKey(pT, 3, "status", HELP_PCIE_STATUS);
    CLI_AddPara(pT, 4, CLI_STRING, EQU_CmdCheck_Channel, HELP_PCIE_CHANNEL);
    CLI_AddPara(pT, 5, CLI_STRING, EQU_CmdCheck_PortOrAll, HELP_COMM_SLOT);
    CLI_InstallCmd(pT, 5, "$1 $2 $5 $3", EQU_CmdProc_PcieGetStatus);  // test pcie all status
    CLI_FreeCmdTemplet(pT, 5);
}

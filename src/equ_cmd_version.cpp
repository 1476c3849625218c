// Version report.
//
// Commands:
//   display version mainboard
// Pass: the board id, the PCB revision and the application versions were all
// read. Fail: any of them could not be (each prints its own "error" line and
// the report goes on to the next item).
//
// Values:
//   <board type string>  mainboard
//
// Touches: /dev/hal_gpio, group 4 bits 7-10 (board id straps) and 12-13 (PCB
// revision straps), set to input and read; the shell's
// "update -v | grep -i Current > /tmp/CurrenVer" and the "New" line likewise.
//
// Kept on purpose:
// - The report dispatches on the board position through a table of which
//   only the main board's slot is filled; the storage-card, sub-card and SSD
//   reports are built beside it for the boards that have those parts, and
//   nothing reaches them here.
// - /tmp/CurrenVer and /tmp/NewVer stay behind after the command.
// - The APP line has no blank after its colon: the version text brings one.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr uint32_t kStrapGroup = 4;
constexpr uint32_t kIdBits[] = {10, 9, 8, 7};
constexpr uint32_t kPcbHigh = 12, kPcbLow = 13;
constexpr uint32_t kBoardSlots = 255;
constexpr uint32_t kNoBoard = 255;

constexpr unsigned long kScBoardVer = 0x30107;
constexpr unsigned long kScPcbVer = 0x30100;
constexpr unsigned long kScMcuVer = 0x30106;
constexpr unsigned long kScStatus = 0x40626;
constexpr unsigned long kSubStatus = 0x40627;
constexpr unsigned long kSubType = 0x40628;
constexpr unsigned long kSubPcb = 0x40629;

struct CardReq {
    uint32_t u32Card;
    uint32_t u32Value;
};
static_assert(sizeof(CardReq) == 8);

using ReportFn = uint32_t (*)(void);

uint32_t EQU_VersionBoardID(void)
{
    uint32_t au32Level[4] = {0};
    uint32_t u32Err = 0;
    for (uint32_t u32Bit : kIdBits) {
        u32Err |= EQU_GPIO_SetMode(kStrapGroup, u32Bit, 0);
    }
    for (size_t i = 0; i < 4; i++) {
        u32Err |= EQU_GPIO_ReadByte(kStrapGroup, kIdBits[i], &au32Level[i]);
    }
    if (u32Err != 0) {
        printf("\r\n%-16s : %s", "BOARD", "error");
        return EQU_FAIL;
    }
    printf("\r\n%-16s : %u%u%u%u", "BOARD", au32Level[3], au32Level[2], au32Level[1], au32Level[0]);
    return EQU_OK;
}

uint32_t EQU_VersionBoardPCB(void)
{
    uint32_t u32High = 0, u32Low = 0;
    uint32_t u32Err = EQU_GPIO_SetMode(kStrapGroup, kPcbHigh, 0);
    u32Err |= EQU_GPIO_SetMode(kStrapGroup, kPcbLow, 0);
    u32Err |= EQU_GPIO_ReadByte(kStrapGroup, kPcbHigh, &u32High);
    u32Err |= EQU_GPIO_ReadByte(kStrapGroup, kPcbLow, &u32Low);
    if (u32Err != 0) {
        printf("\r\n%-16s : %s", "PCB", "error");
        return EQU_FAIL;
    }
    printf("\r\n%-16s : Ver.%c", "PCB", 'A' + static_cast<int>((u32High * 2) | u32Low));
    return EQU_OK;
}

// Prints the text after the first colon of the file's first line, less
// its line break.
void print_version_line(const char *pcFile, const char *pcName)
{
    char acLine[128] = {0};
    FILE *fp = fopen(pcFile, "r");
    if (fp != nullptr) {
        if (fgets(acLine, sizeof(acLine), fp) == nullptr) {
            acLine[0] = '\0';
        }
        fclose(fp);
    }
    char *pcSave = nullptr;
    strtok_r(acLine, ":", &pcSave);
    char *pcVer = strtok_r(nullptr, ":", &pcSave);
    if (pcVer == nullptr) {
        pcVer = acLine + strlen(acLine);
    } else if (*pcVer != '\0') {
        pcVer[strlen(pcVer) - 1] = '\0';
    }
    printf("\r\n%-16s :%s", pcName, pcVer);
}

uint32_t EQU_VersionuImage(void)
{
    if (system("update -v | grep -i Current > /tmp/CurrenVer") < 0) {
        printf("\r\n%-16s : %s", "APP", "error");
        return EQU_FAIL;
    }
    print_version_line("/tmp/CurrenVer", "APP");
    if (system("update -v | grep -i New > /tmp/NewVer") < 0) {
        printf("\r\nget New APP Version error");
        printf("\r\n%-16s : %s", "APP", "error");
        return EQU_FAIL;
    }
    print_version_line("/tmp/NewVer", "APP_NEW");
    return EQU_OK;
}

uint32_t EQU_VersionMainBoard(void)
{
    uint32_t u32Ret = EQU_OK;
    if (EQU_VersionBoardID() != EQU_OK) {
        printf("\r\nGet Board ID failed");
        u32Ret = EQU_FAIL;
    }
    if (EQU_VersionBoardPCB() != EQU_OK) {
        printf("\r\nGet Board Version failed");
        u32Ret = EQU_FAIL;
    }
    if (EQU_VersionuImage() != EQU_OK) {
        printf("\r\nGet Software Version failed");
        u32Ret = EQU_FAIL;
    }
    return u32Ret;
}

// ---- reports of the other board parts (no slot of the table holds them) ----

// One card request on a node; false (after the node's own message) on failure.
bool card_request(const char *pcNode, unsigned long ulReq, uint32_t u32Card, uint32_t *pu32Val)
{
    EQU_Node node(pcNode, EQU_MSG_OPEN_FAILED);
    CardReq stReq{u32Card, 0};
    if (!node || node.request(ulReq, &stReq) != 0) {
        return false;
    }
    *pu32Val = stReq.u32Value;
    return true;
}

[[maybe_unused]] uint32_t EQU_VersionBoard_StorCard(uint32_t u32Card)
{
    uint32_t u32Val = 0;
    if (!card_request(EQU_DEV_SC, kScBoardVer, u32Card, &u32Val)) {
        printf("\r\nerror: read sc board version failed");
        return EQU_FAIL;
    }
    printf("\r\n%-16s : %u", "BOARD", u32Val);
    return EQU_OK;
}

[[maybe_unused]] uint32_t EQU_VersionBoardPCB_StorCard(uint32_t u32Card)
{
    uint32_t u32Val = 0;
    if (!card_request(EQU_DEV_SC, kScPcbVer, u32Card, &u32Val)) {
        printf("\r\nerror: read sc PCB board version failed");
        return EQU_FAIL;
    }
    printf("\r\n%-16s : Ver.%c", "PCB", static_cast<char>('A' + u32Val));
    return EQU_OK;
}

[[maybe_unused]] uint32_t EQU_VersionMCU_StorCard(uint32_t u32Card)
{
    uint32_t u32Val = 0;
    if (!card_request(EQU_DEV_SC, kScMcuVer, u32Card, &u32Val)) {
        printf("\r\nerror: read sc mcu version failed");
        return EQU_FAIL;
    }
    printf("\r\n%-16s : %u", "MCU", u32Val);
    return EQU_OK;
}

[[maybe_unused]] uint32_t EQU_Get_Storcard_Status(uint32_t u32Card)
{
    uint32_t u32Val = 0;
    if (!card_request(EQU_DEV_SC, kScStatus, u32Card, &u32Val)) {
        printf("\r\nerror: read sc board version failed");
        return EQU_FAIL;
    }
    return u32Val;
}

[[maybe_unused]] uint32_t EQU_Get_Subcard_Status(uint32_t u32Card)
{
    EQU_Node node(EQU_DEV_GPIO, {"\r\nfaild to open ", ""});
    if (!node) {
        return EQU_FAIL;
    }
    CardReq stReq{u32Card, 0};
    if (node.request(kSubStatus, &stReq) != 0) {
        printf("\r\nfaild to get subcard status error-%s", node.error());
        return EQU_FAIL;
    }
    return stReq.u32Value;
}

[[maybe_unused]] uint32_t EQU_VersionBoardType_SubCard(uint32_t u32Card)
{
    // Codes 0, 1 and others would index past the two names; the table is
    // sized so that they read empty slots instead.
    static const char acType[5][10] = {"WB33TQ36", "WB33TQ34", "", "", ""};
    uint32_t u32Val = 0;
    if (!card_request(EQU_DEV_GPIO, kSubType, u32Card, &u32Val)) {
        printf("\r\n%-16s : %s", "BOARD", "error");
        return EQU_FAIL;
    }
    size_t ulSlot = u32Val == 8 ? 0 : u32Val == 9 ? 1 : u32Val == 0 ? 2 : u32Val == 1 ? 3 : 4;
    printf("\r\n%-16s : %s", "BOARD", acType[ulSlot]);
    return EQU_OK;
}

[[maybe_unused]] uint32_t EQU_VersionBoardPCB_SubCard(uint32_t u32Card)
{
    uint32_t u32Val = 0;
    if (!card_request(EQU_DEV_GPIO, kSubPcb, u32Card, &u32Val)) {
        printf("\r\n%-16s : Ver.%s", "PCB", "error");
        return EQU_FAIL;
    }
    printf("\r\n%-16s : Ver.%c", "PCB", static_cast<char>('A' + u32Val));
    return EQU_OK;
}

// The system disk's name ("sda", "mmcblk0") from the disk driver's overview.
uint32_t EQU_Get_SSD_DiskName(char *pcName)
{
    if (system("cat /proc/disk/global | grep -i SSD | awk '{print $4}' > /tmp/ssd_name") != 0) {
        printf("\r\nfailed to get system disk name from /proc/disk/global\n");
        return EQU_FAIL;
    }
    char acName[9] = {0};
    FILE *fp = fopen("/tmp/ssd_name", "r");
    if (fp == nullptr || fread(acName, 1, 8, fp) == 0) {
        if (fp != nullptr) {
            fclose(fp);
        }
        printf("\r\nget ssd name failed");
        return EQU_FAIL;
    }
    fclose(fp);
    acName[strncmp(acName, "sd", 2) == 0 ? 3 : strncmp(acName, "mmcblk", 6) == 0 ? 7 : 8] = '\0';
    strcpy(pcName, acName);
    return EQU_OK;
}

// The value after '=' of a "key=value" field, up to the next ','.
void print_ssd_field(const char *pcField, const char *pcName)
{
    const char *pcEq = pcField != nullptr ? strchr(pcField, '=') : nullptr;
    char acVal[64] = {0};
    if (pcEq != nullptr) {
        snprintf(acVal, sizeof(acVal), "%.*s", static_cast<int>(strcspn(pcEq + 1, ",\n")),
                 pcEq + 1);
    }
    printf("\n%-16s : %s", pcName, acVal);
}

[[maybe_unused]] uint32_t EQU_VersionSSD(void)
{
    char acName[16] = {0};
    if (EQU_Get_SSD_DiskName(acName) != EQU_OK) {
        printf("\r\nget name error");
        return EQU_FAIL;
    }
    if (strncmp(acName, "mmcblk", 6) == 0) {
        printf("\r\nsystem disk is emmc");
        return EQU_OK;
    }
    char acCmd[96], acLine[256] = {0};
    snprintf(acCmd, sizeof(acCmd), "hdparm -i /dev/%s 1>>/tmp/ssd_verinfo1 2>&1", acName);
    bool bOk = system(acCmd) == 0 &&
               system("cat /tmp/ssd_verinfo1 | grep -i Model > /tmp/ssd_verinfo2") == 0;
    FILE *fp = bOk ? fopen("/tmp/ssd_verinfo2", "r") : nullptr;
    bOk = fp != nullptr && fgets(acLine, sizeof(acLine), fp) != nullptr &&
          fgets(acLine, sizeof(acLine), fp) != nullptr;
    if (fp != nullptr) {
        fclose(fp);
    }
    if (!bOk) {
        printf("\r\nget ssd_info error");
        printf("\r\n%-16s : %s", "SSD", "error");
        return EQU_FAIL;
    }
    print_ssd_field(acLine, "SSD_MODEL");
    print_ssd_field(strchr(acLine, ','), "SSD_VERSION");
    return EQU_OK;
}

// ---- validators ----

uint64_t EQU_CmdCheck_BoardPos_Version(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strcmp(pcToken, "mainboard") != 0) {
        printf("\r\ncmd can only be mainboard,please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_Version(CLI_CMD_PARA_S *pstCmdPara)
{
    ReportFn apfReport[kBoardSlots] = {EQU_VersionMainBoard};
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    if (ulNum == 1) {
        char acPara[CLI_MAX_TOKEN_LEN] = {0};
        CLI_GetOctStringPara(pstCmdPara, 0, acPara);
        gulBoardIdx = EQU_GetBoardPos(acPara);
        if (gulBoardIdx == kNoBoard || apfReport[gulBoardIdx] == nullptr) {
            printf("\r\nunsupport board type %s, please check", acPara);
            return EQU_FAIL;
        }
    }
    return apfReport[gulBoardIdx]();
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Version(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "display", HELP_COMM_DISPLAY);
    CLI_AddKey(pT, 2, "version", HELP_VERSION);
    CLI_AddPara(pT, 3, CLI_STRING, EQU_CmdCheck_BoardPos_Version, HELP_VERSION_BOARD_TYPE);
    CLI_InstallCmd(pT, 3, "$1 $2 $3", EQU_CmdProc_Version);  // display version mainboard
    CLI_FreeCmdTemplet(pT, 3);
}

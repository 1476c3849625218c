// Hard-disk tests: a sector read/write test on a slot's raw disk that puts
// back what it overwrote, presence per slot and capacity.
//
// Commands:
//   test hdd DEU SLOT NUM read|write   sectors 1..NUM of slot 0..3
//   test hdd DEU all NUM read|write    the same on slots 0..3
//   test hdd DEU present               DEU is taken as the slot
//   test hdd all present               slots 0..3
//   test hdd DEU SLOT capacity         in GiB
// Pass: every selected slot's sectors read back the pattern and were
// restored; the slot holds a disk; the capacity was read. Fail: a disk is
// missing or did not open, a sector read back something else, or the
// capacity could not be read.
//
// Values:
//   <harddisk deu>   any number: the cabinet (0, the board's own disks) before
//                    a slot; in "test hdd N present" N is the slot number
//                    (0~3 hold disks, a larger one reports absent)
//   <harddisk slot>  0~3
//   <harddisk slot for read/write test>  all
//   <num>            1 or more, sectors (a count past the disk's end fails at
//                    the first sector beyond it)
//   <hdd read/write>  read or write (the test is the same)
//
// Touches: /proc/disk/disk_name (word s names slot s's disk, "sd..." when
// present); /dev/sdX opened read-write; /dev/harddisk 0x40500 (72 presence
// bytes, cabinet * 24 + slot) and 0x40510 (72 records of 96 bytes, the
// capacity in bytes at 80).
//
// Departs from the board's historic tool: offsets and sector numbers are
// 64-bit. Its 32-bit byte offset wrapped past 2 GiB and overwrote the wrong
// sectors (sector 0, the partition table, past 4 GiB); a count of 2^31 or more
// is a count too, not "number should >0".
//
// Kept on purpose:
// - Sector 0 (the partition table) is never touched; the DEU number and the
//   read/write word do not change the test.
// - A presence query leaves /dev/harddisk open after a good request: the
//   disk driver has always been used so ("all present" leaves four).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kPresentReq = 0x40500;
constexpr unsigned long kInfoReq = 0x40510;
constexpr size_t kSector = 512;
constexpr size_t kNameLen = 16;
constexpr size_t kPresentLen = 72;
constexpr size_t kInfoRecLen = 96;
constexpr size_t kInfoLen = kPresentLen * kInfoRecLen;
constexpr size_t kCapacityOff = 80;
constexpr uint32_t kMaxSlot = 3;
constexpr EQU_OPEN_MSG_S kMsgOpenFileNl{"\r\nFailed to open ", " file\n"};

unsigned long long ull(uint64_t ulVal)
{
    return static_cast<unsigned long long>(ulVal);
}

uint32_t EQU_GetDisk_Name(uint64_t ulSlot, char *pcName)
{
    if (pcName == nullptr) {
        printf("\r\nGot a null ptr");
        return EQU_FAIL;
    }
    FILE *fp = fopen(EQU_PROC_DISK_NAME, "r");
    if (fp == nullptr) {
        printf("\r\nFailed to open %s file", EQU_PROC_DISK_NAME);
        return EQU_FAIL;
    }
    char acWord[kNameLen];
    for (uint64_t k = 0; k <= ulSlot; k++) {
        memset(acWord, 0, sizeof(acWord));
        if (fscanf(fp, "%15s", acWord) != 1) {
            if (ferror(fp)) {
                fclose(fp);
                return EQU_FAIL;
            }
            break;
        }
    }
    fclose(fp);
    if (strncmp(acWord, "sd", 2) != 0) {
        printf("\r\nFailed to get disk name of slot %lu", static_cast<unsigned long>(ulSlot));
        return EQU_FAIL;
    }
    memcpy(pcName, acWord, kNameLen);
    return EQU_OK;
}

// The highest sector whose byte offset fits an off_t: a larger count stops
// at the disk's end long before.
constexpr uint64_t kMaxSectors = INT64_MAX / kSector;

// 64-bit: a 32-bit offset wraps from sector 4194304 (2 GiB) on, the seek
// fails and the pattern would land where the last transfer left off.
off_t sector_offset(uint64_t ulSector)
{
    return static_cast<off_t>(ulSector * kSector);
}

// A failed seek fails the transfer: it would land where the last one left off.
bool io_at(int fd, off_t lOff, const void *pvData)
{
    if (lseek(fd, lOff, SEEK_SET) != lOff) {
        return false;
    }
    return write(fd, pvData, kSector) == static_cast<ssize_t>(kSector);
}

bool read_at(int fd, off_t lOff, void *pvData)
{
    if (lseek(fd, lOff, SEEK_SET) != lOff) {
        return false;
    }
    return read(fd, pvData, kSector) == static_cast<ssize_t>(kSector);
}

// Pattern in, read back, old data out; true when the pattern came back.
// bStop is set when the old data could not be put back.
bool test_one_sector(int fd, uint32_t u32Slot, uint64_t s, const uint8_t *pucOld, bool &bStop)
{
    uint8_t aucPattern[kSector];
    memset(aucPattern, 0xA5, sizeof(aucPattern));
    off_t lOff = sector_offset(s);
    bool bOk = true;
    if (!io_at(fd, lOff, aucPattern)) {
        printf("\r\nSlot %2u test write test data to sector %llu error", u32Slot, ull(s));
        bOk = false;
    } else {
        fsync(fd);
        uint8_t aucBack[kSector] = {0};
        if (!read_at(fd, lOff, aucBack)) {
            printf("\r\nSlot %2u test read test data of sector %llu error", u32Slot, ull(s));
            bOk = false;
        } else if (memcmp(aucBack, aucPattern, kSector) != 0) {
            printf("\r\nerror:Slot %2u write != read data of sector %llu", u32Slot, ull(s));
            bOk = false;
        }
    }
    if (!io_at(fd, lOff, pucOld)) {
        printf("\r\nSlot %2u write old data back to sector %llu error", u32Slot, ull(s));
        bStop = true;
        return false;
    }
    fsync(fd);
    return bOk;
}

uint32_t EQU_HardDisk_SectorRWTest(const char *pcPath, uint32_t u32Slot, uint64_t ulNum)
{
    EQU_Node disk(pcPath, {"\r\n\n ", " open fail!"});
    if (!disk) {
        return EQU_FAIL;
    }
    bool bFail = false;
    bool bStop = false;
    for (uint64_t s = 1; s <= ulNum && !bStop; s++) {
        uint8_t aucOld[kSector];
        if (!read_at(disk.fd(), sector_offset(s), aucOld)) {
            printf("\r\nSlot %2u test read old data of sector %llu error", u32Slot, ull(s));
            bFail = true;
            break;
        }
        bFail = !test_one_sector(disk.fd(), u32Slot, s, aucOld, bStop) || bFail;
    }
    printf(bFail ? "\r\nSlot %2u test..........error" : "\r\nSlot %2u test..........ok", u32Slot);
    return bFail ? EQU_FAIL : EQU_OK;
}

// One slot's presence byte printed; the node stays open after a good request.
uint32_t present_of_slot(uint64_t ulSlot)
{
    EQU_Node node(EQU_DEV_HARDDISK, kMsgOpenFileNl);
    if (!node) {
        return EQU_FAIL;
    }
    uint8_t aucPresent[kPresentLen] = {0};
    if (node.request(kPresentReq, aucPresent) != 0) {
        puts("\r\nFailed to get present info");
        return EQU_FAIL;
    }
    // The disk driver has always been left open after a presence query.
    node.leak_open();
    // Slots past the table are no disk rather than a read beyond it.
    bool bPresent = ulSlot < kPresentLen && aucPresent[ulSlot] != 0;
    // The slot printed is the one tested, however large.
    printf("\r\nhdd %2llu is: %s ", ull(ulSlot), bPresent ? "present" : "absent");
    return bPresent ? EQU_OK : EQU_FAIL;
}

// ---- validators ----

uint64_t EQU_CmdCheck_Harddisk_Slot(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (!EQU_InRange(pcToken, 0, kMaxSlot)) {
        printf("\r\nslot should between 0 and %d", kMaxSlot);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_Harddisk_Num(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    // Digits with one that is not 0: the size of the number is the disk's
    // business (the test ends at its last sector).
    if (!CLI_IsOnlydigitString(pcToken) || pcToken[strspn(pcToken, "0")] == '\0') {
        printf("\r\nInvalid input!number should >0");
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint64_t EQU_CmdCheck_BoardType_RWStr(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    if (pstCmdPara == nullptr) {
        printf("\r\ngot the NULL ptr");
        return EQU_FAIL;
    }
    if (strcmp(pcToken, "read") != 0 && strcmp(pcToken, "write") != 0) {
        printf("\r\ncmd can only be read or read, please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_LocalHarddisk_Test(CLI_CMD_PARA_S *pstCmdPara)
{
    // The slot as typed: a number or a word, by the rule that matched.
    const char *acSlot = pstCmdPara->astPara[1].szPara;
    // Saturated, not wrapped: 2^64 must not become a count of 0.
    uint64_t ulNum =
        std::min<uint64_t>(strtoull(pstCmdPara->astPara[2].szPara, nullptr, 10), kMaxSectors);
    int64_t lSlot = 0;
    uint32_t u32First = 0;
    uint32_t u32Last = kMaxSlot;
    if (EQU_InRange(acSlot, 0, kMaxSlot, &lSlot)) {
        u32First = u32Last = static_cast<uint32_t>(lSlot);
    } else if (strcmp(acSlot, "all") != 0) {
        printf("\r\ncmd can only be 0~%d or all", kMaxSlot);
        return EQU_FAIL;
    }
    uint32_t u32Fail = 0;
    for (uint32_t s = u32First; s <= u32Last; s++) {
        char acName[kNameLen] = {0};
        if (EQU_GetDisk_Name(s, acName) != EQU_OK) {
            printf("\r\nSlot %2u get name..........error", s);
            u32Fail++;
            continue;
        }
        char acPath[kNameLen];
        snprintf(acPath, sizeof(acPath), "/dev/%.10s", acName);  // at most 15 characters
        u32Fail += EQU_HardDisk_SectorRWTest(acPath, s, ulNum) != EQU_OK;
    }
    return u32Fail != 0 ? EQU_FAIL : EQU_OK;
}

uint64_t EQU_CmdProc_Harddisk_GetStatus(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulSlot = 0;
    CLI_GetUlongValuePara(pstCmdPara, 0, &ulSlot);
    return present_of_slot(ulSlot);
}

uint64_t EQU_CmdProc_Harddisk_GetStatusAll(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    uint32_t u32Fail = 0;
    for (uint64_t s = 0; s <= kMaxSlot; s++) {
        u32Fail += present_of_slot(s) != EQU_OK;
    }
    return u32Fail != 0 ? EQU_FAIL : EQU_OK;
}

uint64_t EQU_CmdProc_Harddisk_GetCapacity(CLI_CMD_PARA_S *pstCmdPara)
{
    uint64_t ulSlot = 0;
    CLI_GetUlongValuePara(pstCmdPara, 1, &ulSlot);
    auto *pucInfo = static_cast<uint8_t *>(malloc(kInfoLen));
    if (pucInfo == nullptr) {
        puts("\r\nFailed to malloc");
        return EQU_FAIL;
    }
    memset(pucInfo, 0, kInfoLen);
    uint32_t u32Ret = EQU_FAIL;
    {
        EQU_Node node(EQU_DEV_HARDDISK, kMsgOpenFileNl);
        if (node && node.request(kInfoReq, pucInfo) != 0) {
            puts("\r\nFailed to get harddisk info");
        } else if (node) {
            uint64_t ullBytes = 0;
            memcpy(&ullBytes, pucInfo + ulSlot * kInfoRecLen + kCapacityOff, sizeof(ullBytes));
            u32Ret = EQU_OK;
            printf("\r\nhdd capacity : %llugb ", static_cast<unsigned long long>(ullBytes >> 30));
        }
    }
    free(pucInfo);
    return u32Ret;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Harddisk(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "hdd", HELP_HDD);
    CLI_AddPara(pT, 3, CLI_INTEGER, EQU_CmdCheck_Harddisk_Slot, HELP_HDD_SLOT);
    CLI_AddPara(pT, 4, CLI_INTEGER, EQU_CmdCheck_Harddisk_Num, HELP_HDD_NUM);
    CLI_AddKey(pT, 5, "present", HELP_HDD_PRESENT);
    CLI_AddPara(pT, 6, CLI_STRING, EQU_CmdCheck_BoardType_RWStr, HELP_HDD_RW);
    CLI_AddPara(pT, 7, CLI_INTEGER, nullptr, HELP_HDD_DEU);
    CLI_AddPara(pT, 8, CLI_STRING, nullptr, HELP_HDD_RW_SLOT);
    CLI_AddKey(pT, 9, "capacity", HELP_HDD_CAPACITY);
    CLI_AddKey(pT, 10, "all", HELP_HDD_ALL);
    CLI_InstallCmd(pT, 10, "$1 $2 $7 $3 $4 $6",
                   EQU_CmdProc_LocalHarddisk_Test);  // test hdd 0 1 255 read
    CLI_InstallCmd(pT, 10, "$1 $2 $7 $8 $4 $6",
                   EQU_CmdProc_LocalHarddisk_Test);  // test hdd 0 all 255 read
    CLI_InstallCmd(pT, 10, "$1 $2 $7 $5", EQU_CmdProc_Harddisk_GetStatus);  // test hdd 0 present
    CLI_InstallCmd(pT, 10, "$1 $2 $10 $5",
                   EQU_CmdProc_Harddisk_GetStatusAll);  // test hdd all present
    CLI_InstallCmd(pT, 10, "$1 $2 $7 $3 $9",
                   EQU_CmdProc_Harddisk_GetCapacity);  // test hdd 0 1 capacity
    CLI_FreeCmdTemplet(pT, 10);
}

// Clearing: returns a tested board to its shipping state once the operator
// confirms, and the disk routines that EQU_FormatDisk (equ_common) drives.
//
// Command:
//   clear information
// After "y" or "Y": wipes the runtime configuration and logs (the time-zone
// file and the mmc directory are kept), reformats eMMC partitions p11 and
// p12, resets the run-time record, stops the recorder's database and main
// service, empties and unmounts /var/fs_disk, reformats md48..md51 and wipes
// the start, the 20 GiB mark and the end of every present disk. Any other
// answer changes nothing.
// Pass: the board was wiped, or the operator did not confirm. Fail: the
// confirmed wipe or the run-time reset failed.
//
// Touches: system() for the runtime wipe and the process stop; EQU_System
// (each step reported) for the data partitions; DRV_DevSupportHdPart(50);
// DRV_BOARD_GetHdiskSlotNum; /dev/harddisk 0x40500; /proc/disk/disk_name
// ("sd..." or "-1" per slot); /dev/sdX written with zeros.
//
// Kept on purpose:
// - The stop loop waits 100 s between tries, up to 50 tries, and goes on
//   with the wipe even when the processes would not stop.
// - "echo y|mkfs.ext4  /dev/md%d" keeps its two blanks.
// - The disk name may be "-1" (an empty slot): its open then fails.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "drv_api.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

namespace {

constexpr unsigned long kPresentReq = 0x40500;
constexpr size_t kPresentLen = 72;
constexpr size_t kSlotsPerCabinet = 24;
constexpr size_t kNameLen = 16;
constexpr size_t kSector = 512;
constexpr off_t kWipeSectors = 128;
constexpr off_t kMiddleSector = 0x2880000;
constexpr unsigned kStopTries = 50;
constexpr unsigned kStopWaitSec = 100;

constexpr const char *kRuntimeWipe[] = {
    "cp /var/runtime/cfg/localtime / 1>/dev/null 2>&1",
    "cp -r /var/runtime/mmc / 1>/dev/null 2>&1",
    "rm -rf /var/runtime 1>/dev/null 2>&1",
    "rm -rf /var/logbackup 1>/dev/null 2>&1",
    "rm -rf /var/log 1>/dev/null 2>&1",
    "mkdir /var/runtime/cfg 1>/dev/null 2>&1",
    "cp /localtime /var/runtime/cfg/ 1>/dev/null 2>&1",
    "cp -r /mmc /var/runtime/ 1>/dev/null 2>&1",
    "umount /dev/mmcblk0p11 1>/dev/null 2>&1",
    "mkfs.ext4 -F /dev/mmcblk0p11",
    "umount /dev/mmcblk0p12 1>/dev/null 2>&1",
    "mkfs.ext4 -F /dev/mmcblk0p12",
    "sync",
};

// A step whose outcome the wipe does not look at.
void run_ignored(const char *pcCmd)
{
    int iRet = system(pcCmd);
    (void)iRet;
}

uint32_t run_reported(const char *pcCmd)
{
    uint32_t u32Ret = EQU_System(pcCmd);
    printf(u32Ret == EQU_OK ? "\r\n%s success " : "\r\ncmd %s error!", pcCmd);
    return u32Ret;
}

uint32_t EQU_ClearInfo(void)
{
    for (const char *pcCmd : kRuntimeWipe) {
        run_ignored(pcCmd);
    }
    sleep(1);
    return EQU_OK;
}

bool recorder_running(void)
{
    return EQU_CmdRes_Num("ps | grep dbserver | grep -v grep | wc -l") != 0 ||
           EQU_CmdRes_Num("ps | grep mainsvc | grep -v grep | wc -l") != 0;
}

// The recorder must let go of its data partitions before they are wiped.
void stop_recorder(void)
{
    for (unsigned i = 0; i < kStopTries; i++) {
        if (!recorder_running()) {
            return;
        }
        run_ignored("killall -9 appwatch 1>/dev/null 2>&1");
        run_ignored("killall -9 mainsvc 1>/dev/null 2>&1");
        run_ignored("killall -9 dbserver 1>/dev/null 2>&1");
        sleep(kStopWaitSec);
    }
    puts("\r\ndbserver kill error");
}

uint32_t EQU_FormatHdPart(void)
{
    if (DRV_DevSupportHdPart(50) == 0) {
        printf("\r\nNo Support 20G");
        return EQU_FAIL;
    }
    stop_recorder();
    run_reported("rm -rf /var/fs_disk/*");
    run_reported("rm -rf /var/fs_disk/.fscheckfile");
    if (run_reported("umount /var/fs_disk") != EQU_OK) {
        // Shows the operator what still holds the partition.
        EQU_System("fuser -m /var/fs_disk");
        EQU_System("ps");
    }
    for (int d = 48; d <= 51; d++) {
        char acCmd[64];
        snprintf(acCmd, sizeof(acCmd), "echo y|mkfs.ext4  /dev/md%d", d);
        run_reported(acCmd);
    }
    return EQU_OK;
}

bool zero_at(int fd, off_t lOff, int iWhence)
{
    static const uint8_t aucZero[kSector] = {0};
    // A seek past the end of a disk fails; writing at the old place instead
    // would wipe sectors that are not ours to wipe.
    return lseek(fd, lOff, iWhence) >= 0 &&
           write(fd, aucZero, kSector) == static_cast<ssize_t>(kSector);
}

bool wipe_areas(int fd)
{
    for (off_t s = 0; s < kWipeSectors; s++) {
        if (!zero_at(fd, s * static_cast<off_t>(kSector), SEEK_SET)) {
            return false;
        }
    }
    fsync(fd);
    for (off_t s = kMiddleSector; s < kMiddleSector + kWipeSectors; s++) {
        if (!zero_at(fd, s * static_cast<off_t>(kSector), SEEK_SET)) {
            return false;
        }
    }
    fsync(fd);
    for (off_t k = 1; k <= kWipeSectors; k++) {
        if (!zero_at(fd, -k * static_cast<off_t>(kSector), SEEK_END)) {
            return false;
        }
    }
    fsync(fd);
    return true;
}

// ---- handlers ----

uint64_t EQU_CmdProc_ClrInfo(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (EQU_CheckYesInput() == 0) {
        return EQU_OK;
    }
    uint32_t u32Wipe = EQU_ClearInfo();
    if (u32Wipe != EQU_OK || EQU_ResetRuntime() != EQU_OK) {
        return EQU_FAIL;
    }
    if (EQU_FormatHdPart() != EQU_OK) {
        printf("\r\nunable to FormatHdPart !");
    }
    if (EQU_FormatDisk() != EQU_OK) {
        printf("\r\nunable to FormatDisk !");
    }
    return EQU_OK;
}

}  // namespace

uint32_t EQU_HdPresent(uint64_t ulCabinet, uint64_t ulSlot, uint8_t *pucPresent)
{
    uint64_t ulIdx = ulCabinet * kSlotsPerCabinet + ulSlot;
    if (ulSlot >= static_cast<uint64_t>(DRV_BOARD_GetHdiskSlotNum()) || ulIdx >= kPresentLen) {
        printf("\r\nInvalid board slot %lu or disk slot %lu", static_cast<unsigned long>(ulCabinet),
               static_cast<unsigned long>(ulSlot));
        return EQU_FAIL;
    }
    if (pucPresent == nullptr) {
        printf("\r\nGot a null ptr");
        return EQU_FAIL;
    }
    EQU_Node node(EQU_DEV_HARDDISK, EQU_MSG_OPEN_FILE);
    if (!node) {
        return EQU_FAIL;
    }
    uint8_t aucPresent[kPresentLen] = {0};
    if (node.request(kPresentReq, aucPresent) != 0) {
        printf("\r\nFailed to get present info");
        return EQU_FAIL;
    }
    *pucPresent = aucPresent[ulIdx];
    return EQU_OK;
}

namespace {

// Up to ucNum words of the name list into entries of 16 bytes.
uint32_t read_disk_names(FILE *fp, char (*pacNames)[kNameLen], uint8_t ucNum)
{
    for (uint8_t i = 0; i < ucNum; i++) {
        if (fscanf(fp, "%15s", pacNames[i]) != 1) {
            return ferror(fp) ? EQU_FAIL : EQU_OK;
        }
        if (strncmp(pacNames[i], "-1", 2) != 0 && strncmp(pacNames[i], "sd", 2) != 0) {
            printf("\r\nFailed to get disk name %s", pacNames[i]);
            return EQU_FAIL;
        }
    }
    return EQU_OK;
}

}  // namespace

uint32_t EQU_GetDiskName(uint64_t ulCabinet, uint64_t ulSlot, char *pcName)
{
    auto ucNum = static_cast<uint8_t>(DRV_BOARD_GetHdiskSlotNum());
    if (ulCabinet != 0 || ulSlot >= ucNum) {
        printf("\r\nInvalid board slot %lu or disk slot %lu", static_cast<unsigned long>(ulCabinet),
               static_cast<unsigned long>(ulSlot));
        return EQU_FAIL;
    }
    if (pcName == nullptr) {
        printf("\r\nGot a null ptr");
        return EQU_FAIL;
    }
    FILE *fp = fopen(EQU_PROC_DISK_NAME, "r");
    if (fp == nullptr) {
        printf("\r\nFailed to open %s file", EQU_PROC_DISK_NAME);
        return EQU_FAIL;
    }
    auto *pacNames = static_cast<char(*)[kNameLen]>(calloc(ucNum, kNameLen));
    if (pacNames == nullptr) {
        printf("\r\nAlloc mem buf failed");
        fclose(fp);
        return EQU_FAIL;
    }
    uint32_t u32Ret = read_disk_names(fp, pacNames, ucNum);
    fclose(fp);
    if (u32Ret == EQU_OK) {
        memcpy(pcName, pacNames[ulSlot], kNameLen);
    }
    free(pacNames);
    return u32Ret;
}

uint32_t EQU_HD_FormatSector(uint64_t ulSlot)
{
    char acName[kNameLen] = {0};
    if (EQU_GetDiskName(0, ulSlot, acName) != EQU_OK) {
        printf("\r\nDRVLib_GetDiskName failed, ulSlotnum:%ld", static_cast<long>(ulSlot));
        return EQU_FAIL;
    }
    char acPath[kNameLen];
    snprintf(acPath, sizeof(acPath), "/dev/%.10s", acName);  // at most 15 characters
    EQU_Node disk(acPath, {"\r\n", " can not open\n"});
    if (!disk) {
        return EQU_FAIL;
    }
    return wipe_areas(disk.fd()) ? EQU_OK : EQU_FAIL;
}

// ---- registration ----

void EQU_Cmd_Clear(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "clear", HELP_CLEAR);
    CLI_AddKey(pT, 2, "information", HELP_CLEAR_INFORMATION);
    CLI_AddKey(pT, 3, "format", HELP_CLEAR_FORMAT);
    CLI_AddKey(pT, 4, "languageinfo", HELP_CLEAR_LANGUAGEINFO);
    CLI_AddKey(pT, 5, "eeprom", HELP_CLEAR_EEPROM);
    CLI_InstallCmd(pT, 5, "$1 $2", EQU_CmdProc_ClrInfo);  // clear information
    CLI_FreeCmdTemplet(pT, 5);
}
